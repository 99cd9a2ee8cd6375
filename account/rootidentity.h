#pragma once

#include <VantroAccount/identity.h>

#include <memory>

namespace vn::account {

class RootIdentityPrivate;

/// The head of every identity chain: the root record of the account configuration. It is trusted
/// because the configuration is signed, so it has no signature of its own and is always valid.
class VANTROACCOUNT_EXPORT RootIdentity : public Identity
{
    Q_OBJECT

public:
    /// Reads the root record from AccountConfiguration::rootIdentity(). A root whose public key does
    /// not parse ends the process: without it nothing can be trusted.
    explicit RootIdentity(QObject *parent);
    ~RootIdentity() override;

    QString uuid() const override;
    QString name() const override;
    Identity *parent() const override;
    QString signature() const override;
    bool isValid() const override;
    vn::crypto::PublicKey publicKey() const override;

private:
    std::unique_ptr<RootIdentityPrivate> const d;
};

} // namespace vn::account

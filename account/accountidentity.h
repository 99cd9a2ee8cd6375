#pragma once

#include <VantroAccount/identity.h>

#include <QJsonArray>
#include <QJsonObject>

#include <memory>

namespace vn::account {

class AccountIdentityPrivate;

/// An identity that the account service hands out: a signed JSON record ("id", "name",
/// "publicKey", optional "parent", "signature") whose signature is made with the key of the
/// identity above it. The last identity of a chain is the account's own; it signs the resources.
class VANTROACCOUNT_EXPORT AccountIdentity : public Identity
{
    Q_OBJECT

public:
    ~AccountIdentity() override;

    /// Builds the chain from @p chain, element 0 signed by the root identity and every further
    /// element by the one before it, and returns the last identity; null for an empty array. Every
    /// element becomes an identity even when a link fails: ask the result's verifyChain().
    /// All identities, root included, become QObject children of @p instance; without an instance
    /// each identity owns the ones above it, so deleting the result deletes the chain.
    static AccountIdentity *loadChain(const QJsonArray &chain, QObject *instance);

    QString uuid() const override;
    QString name() const override;
    Identity *parent() const override;
    QString signature() const override;
    bool isValid() const override;
    vn::crypto::PublicKey publicKey() const override;

protected:
    /// Checks @p record against @p parentIdentity, once: its signature and its declared parent.
    AccountIdentity(const QJsonObject &record, Identity *parentIdentity, QObject *parent);

private:
    std::unique_ptr<AccountIdentityPrivate> const d;
};

} // namespace vn::account

#pragma once

#include <VantroAccount/vantroaccount_export.h>
#include <VantroCrypto/publickey.h>

#include <QObject>
#include <QString>

namespace vn::account {

/// One link of the account's chain of trust: an identity with a public key, signed by the identity
/// above it. The root identity, named by the account configuration, heads every chain.
///
/// Identities are decided once, when they are made, and never change afterwards.
class VANTROACCOUNT_EXPORT Identity : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString uuid READ uuid CONSTANT)
    Q_PROPERTY(QString name READ name CONSTANT)
    Q_PROPERTY(vn::account::Identity *parent READ parent CONSTANT)

public:
    /// @p parent is the QObject owner: the account instance that the identity belongs to.
    explicit Identity(QObject *parent);
    ~Identity() override;

    virtual QString uuid() const = 0;
    virtual QString name() const = 0;
    /// The identity that signed this one; null for the root. Hides QObject::parent(), which still
    /// names the owner.
    virtual Identity *parent() const = 0;
    virtual QString signature() const = 0;
    /// Whether this one link checked out.
    virtual bool isValid() const = 0;
    /// The key with which this identity signs what lies below it.
    virtual vn::crypto::PublicKey publicKey() const = 0;

    /// True when this identity and every identity above it are valid.
    bool verifyChain() const;

private:
    Q_DISABLE_COPY(Identity)
};

} // namespace vn::account

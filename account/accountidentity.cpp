#include "accountidentity.h"
#include "accountidentity_p.h"

#include "accountconfiguration.h"
#include "logging_p.h"
#include "rootidentity.h"

#include <VantroCrypto/jsonsignature.h>

namespace vn::account {

AccountIdentity::AccountIdentity(const QJsonObject &record, Identity *parentIdentity, QObject *parent)
    : Identity(parent)
    , d(std::make_unique<AccountIdentityPrivate>())
{
    d->record = record;
    d->publicKey = crypto::PublicKey(record.value(QLatin1String("publicKey")).toString().toLatin1());
    d->parentIdentity = parentIdentity;

    const crypto::PublicKey signerKey = parentIdentity ? parentIdentity->publicKey() : crypto::PublicKey();
    if (!crypto::JsonSignature::verify(record, signerKey)) {
        qCCritical(lcAccountIdentity, "Account identity verification failed for %s", qUtf8Printable(uuid()));
        return;
    }

    // A record without "parent" claims to be signed by the root; deeper in the chain that claim is
    // false and the link is refused.
    QString declaredParent = record.value(QLatin1String("parent")).toString();
    if (declaredParent.isNull()) {
        declaredParent = AccountConfiguration::rootIdentity().value(QLatin1String("uuid")).toString();
    }
    const QString actualParent = parentIdentity->uuid();
    d->valid = actualParent == declaredParent;
    if (!d->valid) {
        qCCritical(lcAccountIdentity, "Account identity parent mismatch: %s != %s",
                   qUtf8Printable(actualParent), qUtf8Printable(declaredParent));
    }
}

AccountIdentity::~AccountIdentity() = default;

AccountIdentity *AccountIdentity::loadChain(const QJsonArray &chain, QObject *instance)
{
    if (chain.isEmpty()) {
        return nullptr;
    }

    Identity *signer = new RootIdentity(instance);
    AccountIdentity *identity = nullptr;
    for (const QJsonValue &element : chain) {
        identity = new AccountIdentity(element.toObject(), signer, instance);
        // With no instance to own the chain, each link owns the links above it.
        signer->setParent(instance ? instance : identity);
        signer = identity;
    }
    return identity;
}

QString AccountIdentity::uuid() const
{
    return d->record.value(QLatin1String("id")).toString();
}

QString AccountIdentity::name() const
{
    return d->record.value(QLatin1String("name")).toString();
}

Identity *AccountIdentity::parent() const
{
    return d->parentIdentity;
}

QString AccountIdentity::signature() const
{
    return d->record.value(QLatin1String("signature")).toString();
}

bool AccountIdentity::isValid() const
{
    return d->valid;
}

crypto::PublicKey AccountIdentity::publicKey() const
{
    return d->publicKey;
}

} // namespace vn::account

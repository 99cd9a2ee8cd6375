#include "signedscenario.h"

#include "developmentkeys.h"
#include "logging_p.h"

#include <VantroCrypto/jsonsignature.h>

namespace vn::devservice {

namespace {

// The identity records from the root's child down, each signed by the key of the one above it;
// @p keys gains every identity's key by its id.
bool signChain(const Scenario &scenario, QHash<QString, crypto::PrivateKey> *keys, QJsonArray *chain)
{
    QString parent = DevelopmentKeys::rootIdentityUuid();
    keys->insert(parent, DevelopmentKeys::rootIdentityKey());
    for (const Scenario::Identity &identity : scenario.identities()) {
        const QJsonObject record{
            {QStringLiteral("id"), identity.id},
            {QStringLiteral("name"), identity.name},
            {QStringLiteral("publicKey"), QString::fromLatin1(identity.privateKey.publicKey().toPEM())},
            {QStringLiteral("parent"), parent},
        };
        const QJsonObject signedRecord = crypto::JsonSignature::sign(record, keys->value(parent));
        if (signedRecord.isEmpty()) {
            qCCritical(lcDevService, "Cannot sign the identity record %s", qPrintable(identity.id));
            return false;
        }
        chain->append(signedRecord);
        keys->insert(identity.id, identity.privateKey);
        parent = identity.id;
    }
    return true;
}

} // namespace

SignedScenario::SignedScenario(const Scenario &source)
    : scenario(source)
    , signer(source.tokenKey())
{}

QJsonObject SignedScenario::consumer(const QString &username) const
{
    return users.value(username).consumer;
}

std::shared_ptr<const SignedScenario> SignedScenario::sign(const Scenario &scenario,
                                                           const QHash<QString, QUrl> &playedUrls)
{
    auto signedScenario = std::make_shared<SignedScenario>(scenario);
    if (!signedScenario->signer.isValid()) {
        qCCritical(lcDevService, "The scenario's token key cannot sign tokens");
        return nullptr;
    }
    for (const Scenario::User &user : scenario.users()) {
        signedScenario->users.insert(user.username, user);
    }
    for (const Scenario::Device &device : scenario.devices()) {
        signedScenario->devices.insert(device.fingerprint, device);
    }
    QHash<QString, crypto::PrivateKey> keys;
    if (!signChain(scenario, &keys, &signedScenario->identityChain)) {
        return nullptr;
    }

    for (const Scenario::Resource &resource : scenario.resources()) {
        Entitlement entitlement;
        entitlement.id = resource.record.value(QLatin1String("id")).toString();
        entitlement.type = resource.record.value(QLatin1String("type")).toString();
        entitlement.users = QSet<QString>(resource.users.cbegin(), resource.users.cend());
        QJsonObject record = resource.record;
        if (resource.isPlayedService() && playedUrls.contains(entitlement.id)) {
            // Part of what is signed: the client trusts the URL because the record verifies.
            QJsonObject payload = record.value(QLatin1String("payload")).toObject();
            payload.insert(QStringLiteral("url"), playedUrls.value(entitlement.id).toString());
            record.insert(QStringLiteral("payload"), payload);
        }
        const QString issuer = record.value(QLatin1String("issuer")).toString();
        entitlement.envelope = crypto::JsonSignature::sign(record, keys.value(issuer));
        if (entitlement.envelope.isEmpty()) {
            qCCritical(lcDevService, "Cannot sign the resource %s", qPrintable(entitlement.id));
            return nullptr;
        }
        if (resource.tampered) {
            entitlement.envelope.insert(QStringLiteral("payload"),
                                        QJsonObject{{QStringLiteral("tampered"), true}});
        }
        signedScenario->resources.append(entitlement);
    }
    return signedScenario;
}

} // namespace vn::devservice

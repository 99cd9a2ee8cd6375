#pragma once

#include "scenario.h"
#include "tokensigner.h"

#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QSet>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn::devservice {

/// A resource as it is served: its signed envelope and who is entitled to it.
struct Entitlement
{
    QString id;
    QString type;
    QJsonObject envelope;
    /// Empty: every user.
    QSet<QString> users;

    bool entitles(const QString &username) const { return users.isEmpty() || users.contains(username); }
};

/// A scenario as the account API serves it: users by name, devices by key fingerprint, and the
/// identity records and resources signed once, each identity by its parent's key and each resource
/// by its issuer's. Immutable once made, so that requests share it without a lock.
class SignedScenario
{
public:
    /// Signs @p scenario, filling in the URL of each played service from @p playedUrls (by resource
    /// id) before its record is signed; null when a key cannot sign.
    static std::shared_ptr<const SignedScenario> sign(const Scenario &scenario,
                                                      const QHash<QString, QUrl> &playedUrls);

    explicit SignedScenario(const Scenario &source);

    /// The consumer record of @p username; empty for an unknown user.
    QJsonObject consumer(const QString &username) const;

    Scenario scenario;
    QHash<QString, Scenario::User> users;
    QHash<QString, Scenario::Device> devices;
    QJsonArray identityChain;
    QList<Entitlement> resources;
    TokenSigner signer;
};

} // namespace vn::devservice

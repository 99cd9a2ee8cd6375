#pragma once

#include <QJsonArray>
#include <QJsonObject>
#include <QString>
#include <QStringList>

namespace vn::account {
class Account;
}

namespace vn::tools {

/// What vantro-account prints about an account: one JSON form for --json, and the text a person
/// reads, made from that same JSON so that the two always say the same.
///
/// Nothing secret ever enters a report: no access token, no client key, and of a resource's payload
/// only the members that do not hold credentials.
class AccountReport
{
public:
    /// Status, online flag, client id, service URL, session, consumer (with its permissions as flag
    /// names and its roles), identity chain and whether it verifies, and resource counts by type.
    static QJsonObject status(vn::account::Account &account);
    /// Every resource: type, id, owner, priority, validity and the public part of its payload.
    static QJsonArray resources(vn::account::Account &account);
    /// Every service resource: name, URL, id and status ("disabled", "pending" or "ready").
    static QJsonArray services(vn::account::Account &account);
    /// The service's login list as id, since, host and whether it is @p currentLoginId.
    static QJsonArray logins(const QJsonArray &serviceLogins, const QString &currentLoginId);

    static QString statusText(const QJsonObject &status);
    static QString resourcesText(const QJsonArray &resources);
    static QString servicesText(const QJsonArray &services);
    static QString loginsText(const QJsonArray &logins);

    /// @p permission as the names of its flags, lowest bit first; bits without a name are given in
    /// hexadecimal. An empty list for 0.
    static QStringList permissionNames(int permission);
    /// @p payload without the members that may hold secrets (credentials, passwords, tokens, keys,
    /// at any depth); the paths of the members left out go to @p withheld.
    static QJsonValue publicPayload(const QJsonValue &payload, QStringList *withheld);
};

} // namespace vn::tools

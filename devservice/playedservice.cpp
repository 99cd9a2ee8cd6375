#include "playedservice.h"

#include "tokensigner.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <algorithm>

namespace vn::devservice {

namespace {

AccountApi::Response answer(int status, const QJsonObject &body)
{
    AccountApi::Response response;
    response.status = status;
    response.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
    return response;
}

// Says what was wrong with the credential, never the credential itself.
AccountApi::Response refused(const QString &reason)
{
    AccountApi::Response response = answer(401, {{QStringLiteral("error"), reason}});
    response.headers.append({QByteArrayLiteral("WWW-Authenticate"), QByteArrayLiteral("Bearer")});
    return response;
}

} // namespace

PlayedService::PlayedService(const Scenario::Resource &resource, const Scenario &scenario)
    : m_name(resource.serviceName())
    , m_resourceId(resource.record.value(QLatin1String("id")).toString())
    , m_tokenKey(scenario.tokenKey().publicKey().toPEM())
{
    for (const Scenario::User &user : scenario.users()) {
        m_consumerNames.insert(user.consumer.value(QLatin1String("id")).toString(),
                               user.consumer.value(QLatin1String("name")).toString());
    }
}

AccountApi::Response PlayedService::handle(const AccountApi::Request &request) const
{
    if (request.method != "GET" && request.method != "HEAD") {
        AccountApi::Response response =
            answer(405, {{QStringLiteral("error"), QStringLiteral("method not allowed")}});
        response.headers.append({QByteArrayLiteral("Allow"), QByteArrayLiteral("GET, HEAD")});
        return response;
    }
    const int space = request.authorization.indexOf(' ');
    const QByteArray token = request.authorization.mid(space + 1).trimmed();
    if (space < 0 || request.authorization.left(space).toLower() != "bearer" || token.isEmpty()) {
        return refused(QStringLiteral("a bearer token is required"));
    }
    if (!TokenSigner::verify(token, crypto::PublicKey(m_tokenKey))) {
        return refused(QStringLiteral("the token's signature does not verify"));
    }
    const QJsonObject claims =
        QJsonDocument::fromJson(QByteArray::fromBase64(token.split('.').at(1))).object();
    const QJsonValue audience = claims.value(QLatin1String("aud"));
    if (audience.toString() != m_name && !audience.toArray().contains(m_name)) {
        return refused(QStringLiteral("the token is not for this service"));
    }
    // Compared before it becomes an integer: a number beyond the range of qint64 has no integer
    // value. An expiry after the last second of the year 9999 is reported as that second.
    const double expiry = claims.value(QLatin1String("exp")).toDouble();
    if (!(expiry > double(QDateTime::currentSecsSinceEpoch()))) {
        return refused(QStringLiteral("the token has expired"));
    }
    const qint64 expires = qint64(std::min(expiry, 253402300799.0));
    const QString subject = claims.value(QLatin1String("sub")).toString();
    QJsonObject caller{
        {QStringLiteral("service"), m_name},
        {QStringLiteral("path"), request.path},
        {QStringLiteral("subject"), subject},
        {QStringLiteral("expires"), QDateTime::fromSecsSinceEpoch(expires, Qt::UTC).toString(Qt::ISODate)},
    };
    if (m_consumerNames.contains(subject)) {
        caller.insert(QStringLiteral("name"), m_consumerNames.value(subject));
    }
    return answer(200, caller);
}

} // namespace vn::devservice

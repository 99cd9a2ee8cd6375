#include "playedservice.h"

#include "tokensigner.h"

#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>

namespace vn::devservice {

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

ApiResponse PlayedService::handle(const ApiRequest &request) const
{
    if (request.method != "GET" && request.method != "HEAD") {
        return ApiResponse::methodNotAllowed(QByteArrayLiteral("GET, HEAD"));
    }
    const QByteArray token = bearerToken(request.authorization);
    if (token.isEmpty()) {
        return ApiResponse::unauthorized(QStringLiteral("a bearer token is required"));
    }
    if (!TokenSigner::verify(token, crypto::PublicKey(m_tokenKey))) {
        return ApiResponse::unauthorized(QStringLiteral("the token's signature does not verify"));
    }
    const QJsonObject claims = TokenSigner::readClaims(token);
    const QJsonValue audience = claims.value(QLatin1String("aud"));
    if (audience.toString() != m_name && !audience.toArray().contains(m_name)) {
        return ApiResponse::unauthorized(QStringLiteral("the token is not for this service"));
    }
    // Compared before it becomes an integer: a number beyond the range of qint64 has no integer
    // value. An expiry after the last second of the year 9999 is reported as that second.
    const double expiry = claims.value(QLatin1String("exp")).toDouble();
    if (!(expiry > double(QDateTime::currentSecsSinceEpoch()))) {
        return ApiResponse::unauthorized(QStringLiteral("the token has expired"));
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
    return ApiResponse::json(200, caller);
}

} // namespace vn::devservice

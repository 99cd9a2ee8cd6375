#pragma once

#include <QByteArray>
#include <QJsonValue>
#include <QList>
#include <QPair>
#include <QString>

namespace vn::devservice {

/// A request as the account API and the played services see it, free of any HTTP plumbing.
struct ApiRequest
{
    QByteArray method;
    /// Below the service's base, without a leading "/" or the query ("api/v1/consumer"); a played
    /// service gets the full path.
    QString path;
    /// The value of the Authorization header, if any.
    QByteArray authorization;
    QByteArray body;
};

/// The status, headers and JSON body that a request is answered with.
struct ApiResponse
{
    int status = 200;
    QByteArray body;
    QList<QPair<QByteArray, QByteArray>> headers;

    /// @p status with @p body (an object or an array) as compact JSON.
    static ApiResponse json(int status, const QJsonValue &body);
    /// @p status with {"error": @p message}: every failure of the service reads the same.
    static ApiResponse error(int status, const QString &message);
    /// 405, with the methods that are allowed in "Allow" (for example "GET, HEAD").
    static ApiResponse methodNotAllowed(const QByteArray &allowed);
    /// 401 with {"error": @p reason} and "WWW-Authenticate: Bearer": says what was wrong with the
    /// credential, never the credential itself.
    static ApiResponse unauthorized(const QString &reason);

    /// 1xx, 204 and 304 answers end with their headers: a body would be read as the start of the
    /// next answer on the connection.
    static bool mayHaveBody(int status);
};

/// The credential of "Authorization: Bearer <token>" (the scheme in any case); empty for any other.
QByteArray bearerToken(const QByteArray &authorization);

} // namespace vn::devservice

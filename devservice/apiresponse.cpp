#include "apiresponse.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace vn::devservice {

ApiResponse ApiResponse::json(int status, const QJsonValue &body)
{
    ApiResponse response;
    response.status = status;
    response.body = body.isArray() ? QJsonDocument(body.toArray()).toJson(QJsonDocument::Compact)
                                   : QJsonDocument(body.toObject()).toJson(QJsonDocument::Compact);
    return response;
}

ApiResponse ApiResponse::error(int status, const QString &message)
{
    return json(status, QJsonObject{{QStringLiteral("error"), message}});
}

ApiResponse ApiResponse::methodNotAllowed(const QByteArray &allowed)
{
    ApiResponse response = error(405, QStringLiteral("method not allowed"));
    response.headers.append({QByteArrayLiteral("Allow"), allowed});
    return response;
}

ApiResponse ApiResponse::unauthorized(const QString &reason)
{
    ApiResponse response = error(401, reason);
    response.headers.append({QByteArrayLiteral("WWW-Authenticate"), QByteArrayLiteral("Bearer")});
    return response;
}

bool ApiResponse::mayHaveBody(int status)
{
    return status >= 200 && status != 204 && status != 304;
}

QByteArray bearerToken(const QByteArray &authorization)
{
    const int space = authorization.indexOf(' ');
    if (space < 0 || authorization.left(space).toLower() != "bearer") {
        return QByteArray();
    }
    return authorization.mid(space + 1).trimmed();
}

} // namespace vn::devservice

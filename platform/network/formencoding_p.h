#pragma once

#include <QNetworkRequest>

namespace vn::network {

/// Whether the request's body is application/x-www-form-urlencoded, whose parameters OAuth 1
/// signs along with those of the query.
inline bool isFormEncoded(const QNetworkRequest &request)
{
    QByteArray type = request.rawHeader(QByteArrayLiteral("Content-Type"));
    if (type.isEmpty()) {
        type = request.header(QNetworkRequest::ContentTypeHeader).toByteArray();
    }
    const int separator = type.indexOf(';');
    if (separator >= 0) {
        type.truncate(separator);
    }
    return type.trimmed().toLower() == "application/x-www-form-urlencoded";
}

} // namespace vn::network

#pragma once

#include <QNetworkRequest>
#include <QPair>
#include <QString>
#include <QUrlQuery>
#include <QVector>

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

/// Decodes a query string or form body the way an HTML form is read: '+' is a space, and percent
/// escapes are UTF-8.
inline QVector<QPair<QString, QString>> formParameters(QByteArray encoded)
{
    encoded.replace('+', QByteArrayLiteral("%20"));
    QVector<QPair<QString, QString>> parameters;
    const QUrlQuery query(QString::fromUtf8(encoded));
    const auto items = query.queryItems(QUrl::FullyDecoded);
    for (const auto &item : items) {
        parameters.append(item);
    }
    return parameters;
}

} // namespace vn::network

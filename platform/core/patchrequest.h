#pragma once

#include <Vantro/request.h>

namespace vn {

/// An HTTP PATCH. A JSON body is sent in its compact form; the caller sets the content type.
class VANTRO_EXPORT PatchRequest : public Request
{
    Q_OBJECT
public:
    static constexpr int DefaultTimeout = 60000;

    PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QJsonArray &body,
                 QObject *parent = nullptr);
    PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QJsonObject &body,
                 QObject *parent = nullptr);
    PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QByteArray &body,
                 QObject *parent = nullptr);
};

} // namespace vn

#pragma once

#include <Vantro/request.h>

namespace vn {

/// An HTTP PUT. A JSON body is sent in its compact form; the caller sets the content type.
class VANTRO_EXPORT PutRequest : public Request
{
    Q_OBJECT
public:
    static constexpr int DefaultTimeout = 60000;

    PutRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QJsonObject &body,
               QObject *parent = nullptr);
    PutRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QByteArray &body,
               QObject *parent = nullptr);
};

} // namespace vn

#include "postrequest.h"
#include "request_p.h"

namespace vn {

PostRequest::PostRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                         const QJsonObject &body, QObject *parent)
    : Request(QByteArrayLiteral("POST"), request, network, compactJson(QJsonDocument(body)), DefaultTimeout,
              parent)
{}

PostRequest::PostRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                         const QByteArray &body, QObject *parent)
    : Request(QByteArrayLiteral("POST"), request, network, body, DefaultTimeout, parent)
{}

} // namespace vn

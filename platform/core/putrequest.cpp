#include "putrequest.h"
#include "request_p.h"

namespace vn {

PutRequest::PutRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                       const QJsonObject &body, QObject *parent)
    : Request(QByteArrayLiteral("PUT"), request, network, compactJson(QJsonDocument(body)), DefaultTimeout,
              parent)
{}

PutRequest::PutRequest(const QNetworkRequest &request, QNetworkAccessManager *network, const QByteArray &body,
                       QObject *parent)
    : Request(QByteArrayLiteral("PUT"), request, network, body, DefaultTimeout, parent)
{}

} // namespace vn

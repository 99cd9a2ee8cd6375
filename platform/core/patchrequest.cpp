#include "patchrequest.h"
#include "request_p.h"

namespace vn {

PatchRequest::PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                           const QJsonArray &body, QObject *parent)
    : Request(QByteArrayLiteral("PATCH"), request, network, compactJson(QJsonDocument(body)), DefaultTimeout,
              parent)
{}

PatchRequest::PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                           const QJsonObject &body, QObject *parent)
    : Request(QByteArrayLiteral("PATCH"), request, network, compactJson(QJsonDocument(body)), DefaultTimeout,
              parent)
{}

PatchRequest::PatchRequest(const QNetworkRequest &request, QNetworkAccessManager *network,
                           const QByteArray &body, QObject *parent)
    : Request(QByteArrayLiteral("PATCH"), request, network, body, DefaultTimeout, parent)
{}

} // namespace vn

#include "getrequest.h"

namespace vn {

GetRequest::GetRequest(const QNetworkRequest &request, QNetworkAccessManager *network, QObject *parent)
    : Request(QByteArrayLiteral("GET"), request, network, QByteArray(), DefaultTimeout, parent)
{}

} // namespace vn

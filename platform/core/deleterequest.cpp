#include "deleterequest.h"

namespace vn {

DeleteRequest::DeleteRequest(const QNetworkRequest &request, QNetworkAccessManager *network, QObject *parent)
    : Request(QByteArrayLiteral("DELETE"), request, network, QByteArray(), DefaultTimeout, parent)
{}

} // namespace vn

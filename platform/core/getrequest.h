#pragma once

#include <Vantro/request.h>

namespace vn {

/// An HTTP GET without a body.
class VANTRO_EXPORT GetRequest : public Request
{
    Q_OBJECT
public:
    static constexpr int DefaultTimeout = 30000;

    GetRequest(const QNetworkRequest &request, QNetworkAccessManager *network, QObject *parent = nullptr);
};

} // namespace vn

#pragma once

#include <Vantro/request.h>

namespace vn {

/// An HTTP DELETE without a body.
class VANTRO_EXPORT DeleteRequest : public Request
{
    Q_OBJECT
public:
    static constexpr int DefaultTimeout = 30000;

    DeleteRequest(const QNetworkRequest &request, QNetworkAccessManager *network, QObject *parent = nullptr);
};

} // namespace vn

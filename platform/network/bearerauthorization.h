#pragma once

#include <VantroNetwork/authorization.h>

#include <QByteArray>

namespace vn::network {

/// Writes "Authorization: Bearer <token>".
class VANTRONETWORK_EXPORT BearerAuthorization : public Authorization
{
public:
    BearerAuthorization(const QStringList &hosts, const QByteArray &token);
    ~BearerAuthorization() override;

    void authorize(QNetworkRequest &request, const QByteArray &verb, const QByteArray &body) const override;

private:
    QByteArray m_token;
};

} // namespace vn::network

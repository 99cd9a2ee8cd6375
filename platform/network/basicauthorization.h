#pragma once

#include <VantroNetwork/authorization.h>

#include <QString>

namespace vn::network {

/// Writes "Authorization: Basic ..." as RFC 7617 describes, with user name and password in UTF-8.
class VANTRONETWORK_EXPORT BasicAuthorization : public Authorization
{
public:
    BasicAuthorization(const QStringList &hosts, const QString &userName, const QString &password);
    ~BasicAuthorization() override;

    void authorize(QNetworkRequest &request, const QByteArray &verb, const QByteArray &body) const override;

private:
    QByteArray m_header;
};

} // namespace vn::network

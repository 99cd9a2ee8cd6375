#pragma once

#include <VantroNetwork/authorization.h>

#include <QString>

namespace vn::network {

/// Signs every request with OAuth 1.0 HMAC-SHA1 (RFC 5849) and writes the "Authorization: OAuth ..."
/// header, with a fresh nonce and timestamp for each request.
class VANTRONETWORK_EXPORT OAuth1Authorization : public Authorization
{
public:
    OAuth1Authorization(const QStringList &hosts, const QString &consumerKey, const QString &consumerSecret,
                        const QString &token, const QString &tokenSecret);
    ~OAuth1Authorization() override;

    void authorize(QNetworkRequest &request, const QByteArray &verb, const QByteArray &body) const override;

private:
    QString m_consumerKey;
    QString m_consumerSecret;
    QString m_token;
    QString m_tokenSecret;
};

} // namespace vn::network

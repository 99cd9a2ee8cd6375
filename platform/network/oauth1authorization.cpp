#include "oauth1authorization.h"
#include "formencoding_p.h"
#include "oauth1signature_p.h"

#include <QDateTime>
#include <QNetworkRequest>
#include <QRandomGenerator>
#include <QUrl>

namespace vn::network {

namespace {

QString freshNonce()
{
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(words), sizeof(words)).toHex());
}

} // namespace

OAuth1Authorization::OAuth1Authorization(const QStringList &hosts, const QString &consumerKey,
                                         const QString &consumerSecret, const QString &token,
                                         const QString &tokenSecret)
    : Authorization(hosts)
    , m_consumerKey(consumerKey)
    , m_consumerSecret(consumerSecret)
    , m_token(token)
    , m_tokenSecret(tokenSecret)
{}

OAuth1Authorization::~OAuth1Authorization() = default;

void OAuth1Authorization::authorize(QNetworkRequest &request, const QByteArray &verb,
                                    const QByteArray &body) const
{
    QVector<QPair<QString, QString>> oauthParameters = {
        {QStringLiteral("oauth_consumer_key"), m_consumerKey},
        {QStringLiteral("oauth_nonce"), freshNonce()},
        {QStringLiteral("oauth_signature_method"), QStringLiteral("HMAC-SHA1")},
        {QStringLiteral("oauth_timestamp"), QString::number(QDateTime::currentSecsSinceEpoch())},
        {QStringLiteral("oauth_version"), QStringLiteral("1.0")},
    };
    if (!m_token.isEmpty()) {
        oauthParameters.append({QStringLiteral("oauth_token"), m_token});
    }

    const OAuth1Signature signature =
        signOAuth1Request(verb, request.url(), isFormEncoded(request) ? body : QByteArray(), oauthParameters,
                          m_consumerSecret, m_tokenSecret);
    oauthParameters.append({QStringLiteral("oauth_signature"), QString::fromLatin1(signature.signature)});

    QByteArray header = QByteArrayLiteral("OAuth ");
    for (int i = 0; i < oauthParameters.size(); ++i) {
        if (i > 0) {
            header += ", ";
        }
        header += QUrl::toPercentEncoding(oauthParameters.at(i).first) + "=\"" +
                  QUrl::toPercentEncoding(oauthParameters.at(i).second) + '"';
    }
    request.setRawHeader(QByteArrayLiteral("Authorization"), header);
}

} // namespace vn::network

#include "oauth1authorization.h"
#include "formencoding_p.h"
#include "networklogging_p.h"

#include <QDateTime>
#include <QMultiMap>
#include <QNetworkRequest>
#include <QOAuth1Signature>
#include <QRandomGenerator>
#include <QUrl>

#include <algorithm>

namespace vn::network {

namespace {

QString freshNonce()
{
    quint32 words[4];
    QRandomGenerator::system()->fillRange(words);
    return QString::fromLatin1(QByteArray(reinterpret_cast<const char *>(words), sizeof(words)).toHex());
}

// The base string URI leaves out the query, the fragment, the user information and a port that
// the scheme implies.
QUrl baseStringUrl(const QUrl &url)
{
    QUrl base = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo);
    if ((base.scheme() == QLatin1String("http") && base.port() == 80) ||
        (base.scheme() == QLatin1String("https") && base.port() == 443)) {
        base.setPort(-1);
    }
    return base;
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
    const QUrl url = request.url();
    const QUrl base = baseStringUrl(url);
    if (base.toString() != base.toString(QUrl::FullyEncoded)) {
        // QOAuth1Signature encodes the decoded form of the path, so spaces and non-ASCII
        // characters in it are escaped once where the signature base wants them escaped twice.
        qCWarning(lcNetwork)
            << "OAuth 1 request to" << url.host()
            << "has an address with escaped characters; a strict server may reject its signature";
    }

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

    QVector<QPair<QString, QString>> signedParameters = oauthParameters;
    signedParameters += formParameters(url.query(QUrl::FullyEncoded).toLatin1());
    if (!body.isEmpty() && isFormEncoded(request)) {
        signedParameters += formParameters(body);
    }
    signedParameters.erase(
        std::remove_if(signedParameters.begin(), signedParameters.end(),
                       [](const auto &item) { return item.first == QLatin1String("oauth_signature"); }),
        signedParameters.end());

    // Parameters that share a name are signed in the order of their encoded values. A multi-map
    // yields the entry inserted last first, so they go in from the largest value down. (Qt's
    // signature code logs a warning for each repeated name; the signature is right all the same.)
    std::sort(signedParameters.begin(), signedParameters.end(), [](const auto &left, const auto &right) {
        return QUrl::toPercentEncoding(left.second) > QUrl::toPercentEncoding(right.second);
    });
    QMultiMap<QString, QVariant> parameters;
    for (const auto &item : qAsConst(signedParameters)) {
        parameters.insert(item.first, item.second);
    }

    QOAuth1Signature signature(base, m_consumerSecret, m_tokenSecret,
                               QOAuth1Signature::HttpRequestMethod::Custom, parameters);
    signature.setCustomMethodString(verb.toUpper());
    oauthParameters.append(
        {QStringLiteral("oauth_signature"), QString::fromLatin1(signature.hmacSha1().toBase64())});

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

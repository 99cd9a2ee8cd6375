#include "oauth1signature_p.h"

#include <QMessageAuthenticationCode>
#include <QUrl>

#include <algorithm>

namespace vn::network {

namespace {

using EncodedParameters = QVector<QPair<QByteArray, QByteArray>>;

// RFC 5849 section 3.6: everything but ALPHA, DIGIT, '-', '.', '_' and '~' is escaped, which is
// exactly what toPercentEncoding() does without further arguments.
QByteArray encode(const QByteArray &bytes)
{
    return bytes.toPercentEncoding();
}

QByteArray encode(const QString &text)
{
    return text.toUtf8().toPercentEncoding();
}

// The parameters of a query or form body, read as application/x-www-form-urlencoded ('+' is a
// space) and encoded again for the base string. Bytes are kept as they are: a value that is not
// UTF-8 is signed as the server receives it.
void appendFormParameters(const QByteArray &form, EncodedParameters &into)
{
    for (QByteArray part : form.split('&')) {
        if (part.isEmpty()) {
            continue;
        }
        part.replace('+', ' ');
        const int equals = part.indexOf('=');
        const QByteArray name = equals < 0 ? part : part.left(equals);
        const QByteArray value = equals < 0 ? QByteArray() : part.mid(equals + 1);
        into.append(
            {encode(QByteArray::fromPercentEncoding(name)), encode(QByteArray::fromPercentEncoding(value))});
    }
}

// Section 3.4.1.2: scheme and host in lower case, the port only when it is not the scheme's own,
// and the path as it goes on the request line. Qt writes that line from the fully encoded URL with
// QUrl::NormalizePathSegments and an empty path as "/", and so does this: whatever that makes of
// dot segments, the server sees the same. QUrl has already brought the escapes into the normal
// form of RFC 3986 (upper-case hex digits, unreserved characters unescaped).
QByteArray baseStringUri(const QUrl &url)
{
    const QByteArray scheme = url.scheme().toLower().toLatin1();
    QByteArray authority = url.host(QUrl::FullyEncoded).toLower().toLatin1();
    if (authority.contains(':')) {
        authority = '[' + authority + ']';
    }
    const int port = url.port();
    if (port >= 0 && !(scheme == "http" && port == 80) && !(scheme == "https" && port == 443)) {
        authority += ':' + QByteArray::number(port);
    }
    QUrl pathOnly = url.adjusted(QUrl::RemoveQuery | QUrl::RemoveFragment);
    if (pathOnly.path().isEmpty()) {
        pathOnly.setPath(QStringLiteral("/"));
    }
    const QByteArray path = pathOnly.toEncoded(QUrl::RemoveScheme | QUrl::RemoveAuthority |
                                               QUrl::NormalizePathSegments | QUrl::FullyEncoded);
    return scheme + "://" + authority + path;
}

} // namespace

OAuth1Signature signOAuth1Request(const QByteArray &method, const QUrl &url, const QByteArray &formBody,
                                  const QVector<QPair<QString, QString>> &oauthParameters,
                                  const QString &consumerSecret, const QString &tokenSecret)
{
    // Section 3.4.1.3: the query, the form body and the protocol parameters, each name and value
    // encoded, sorted by name and then by value.
    EncodedParameters parameters;
    appendFormParameters(url.query(QUrl::FullyEncoded).toLatin1(), parameters);
    appendFormParameters(formBody, parameters);
    for (const auto &[name, value] : oauthParameters) {
        parameters.append({encode(name), encode(value)});
    }
    parameters.erase(std::remove_if(parameters.begin(), parameters.end(),
                                    [](const auto &item) { return item.first == "oauth_signature"; }),
                     parameters.end());
    std::sort(parameters.begin(), parameters.end());
    QByteArrayList normalized;
    for (const auto &[name, value] : qAsConst(parameters)) {
        normalized.append(name + '=' + value);
    }

    OAuth1Signature result;
    result.baseString =
        encode(method.toUpper()) + '&' + encode(baseStringUri(url)) + '&' + encode(normalized.join('&'));
    const QByteArray key = encode(consumerSecret) + '&' + encode(tokenSecret);
    result.signature =
        QMessageAuthenticationCode::hash(result.baseString, key, QCryptographicHash::Sha1).toBase64();
    return result;
}

} // namespace vn::network

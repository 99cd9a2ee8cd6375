#pragma once

#include <VantroNetwork/vantronetwork_export.h>

#include <QByteArray>
#include <QPair>
#include <QString>
#include <QVector>

class QUrl;

namespace vn::network {

/// The HMAC-SHA1 signature of one request (RFC 5849 section 3.4.2) and the base string it signs.
struct OAuth1Signature
{
    QByteArray baseString;
    QByteArray signature; // base64, as it goes into oauth_signature (before percent-encoding)
};

/// Signs a @p method request to @p url. @p formBody is the body when it is
/// application/x-www-form-urlencoded and empty otherwise; @p oauthParameters are the protocol
/// parameters, decoded (an oauth_signature among them is left out). The base string URI is built
/// from the path exactly as the network access manager sends it, so that the server, which sees
/// only that, rebuilds the same base string.
VANTRONETWORK_AUTOTEST_EXPORT OAuth1Signature
signOAuth1Request(const QByteArray &method, const QUrl &url, const QByteArray &formBody,
                  const QVector<QPair<QString, QString>> &oauthParameters, const QString &consumerSecret,
                  const QString &tokenSecret);

} // namespace vn::network

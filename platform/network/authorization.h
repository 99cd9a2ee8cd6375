#pragma once

#include <VantroNetwork/vantronetwork_export.h>

#include <QNetworkAccessManager>
#include <QStringList>

class QNetworkRequest;
class QUrl;

namespace vn::network {

/// A credential that the network layer writes into requests addressed to its hosts.
///
/// A request matches when its host equals the host of one of hosts() (case-insensitive, exact: no
/// suffix or wildcard match; an empty host never matches) and it is either https, or http to a
/// loopback host (127.0.0.0/8, ::1, localhost). Credentials never travel in clear text to another
/// machine.
///
/// An entry may name a port, "host:port" or "[ipv6]:port"; it then matches only requests to that
/// port, where a URL without a port means its scheme's default (http 80, https 443). An entry
/// without a port, "host" or a bare IPv6 address such as "::1", matches every port of the host.
class VANTRONETWORK_EXPORT Authorization
{
public:
    explicit Authorization(const QStringList &hosts);
    virtual ~Authorization();

    QStringList hosts() const;

    /// Whether this authorization may be written into a request to @p url.
    bool matches(const QUrl &url) const;

    /// Writes the credential into @p request (which is addressed to a matching URL). @p verb is the
    /// HTTP method; @p body is the request body when it is known, for schemes that sign it.
    virtual void authorize(QNetworkRequest &request, const QByteArray &verb,
                           const QByteArray &body) const = 0;

    /// The scheme rule alone: https, or http to a loopback host.
    static bool isSecureOrLoopback(const QUrl &url);

    /// The host entry that binds a credential to the origin of @p url: its host, lower case and
    /// fully decoded, with the effective port ("127.0.0.1:8421", "[::1]:8080", "example.com:443"
    /// for https://example.com/). Whoever registers a credential for a URL registers this, so that
    /// another port of the same host never receives it. Empty for a URL without a host, and for
    /// one whose scheme implies no port and that names none: such an entry matches nothing.
    static QString originHost(const QUrl &url);

private:
    Q_DISABLE_COPY(Authorization)
    QStringList m_hosts;
};

} // namespace vn::network

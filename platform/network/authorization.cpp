#include "authorization.h"

#include <QHostAddress>
#include <QUrl>

namespace vn::network {

Authorization::Authorization(const QStringList &hosts)
    : m_hosts(hosts)
{}

Authorization::~Authorization() = default;

QStringList Authorization::hosts() const
{
    return m_hosts;
}

bool Authorization::matches(const QUrl &url) const
{
    const QString host = url.host();
    if (host.isEmpty() || !isSecureOrLoopback(url)) {
        return false;
    }
    // Exact names only: a suffix rule would hand the credential to every subdomain, and those are
    // not necessarily run by whoever issued it.
    for (const QString &candidate : m_hosts) {
        if (host.compare(candidate, Qt::CaseInsensitive) == 0) {
            return true;
        }
    }
    return false;
}

bool Authorization::isSecureOrLoopback(const QUrl &url)
{
    const QString scheme = url.scheme();
    if (scheme.compare(QLatin1String("https"), Qt::CaseInsensitive) == 0) {
        return true;
    }
    if (scheme.compare(QLatin1String("http"), Qt::CaseInsensitive) != 0) {
        return false;
    }
    // Clear text is acceptable only when the bytes never leave this machine: the development
    // service and the test servers listen on loopback.
    const QString host = url.host();
    if (host.compare(QLatin1String("localhost"), Qt::CaseInsensitive) == 0) {
        return true;
    }
    const QHostAddress address(host);
    return !address.isNull() && address.isLoopback();
}

QString Authorization::originHost(const QUrl &url)
{
    const QString host = url.host(QUrl::FullyDecoded).toLower();
    if (host.isEmpty()) {
        return QString();
    }
    const int defaultPort = url.scheme() == QLatin1String("https") ? 443 : 80;
    const QString port = QString::number(url.port(defaultPort));
    if (host.contains(QLatin1Char(':'))) {
        return QLatin1Char('[') + host + QLatin1String("]:") + port;
    }
    return host + QLatin1Char(':') + port;
}

} // namespace vn::network

#include "authorization.h"

#include <QHostAddress>
#include <QUrl>

#include <algorithm>

namespace vn::network {

namespace {

// The port a request to @p url goes to: the one it names, else its scheme's; -1 when neither.
int effectivePort(const QUrl &url)
{
    const QString scheme = url.scheme().toLower();
    return url.port(scheme == QLatin1String("https") ? 443 : scheme == QLatin1String("http") ? 80 : -1);
}

// Whether the host entry @p entry ("host", "host:port", "[ipv6]", "[ipv6]:port" or a bare "ipv6")
// covers @p host on @p port. A malformed port covers nothing rather than every port.
bool entryCovers(const QString &entry, const QString &host, int port)
{
    QString name = entry;
    int separator = -1; // of the port
    if (entry.startsWith(QLatin1Char('['))) {
        const int close = entry.indexOf(QLatin1Char(']'));
        if (close < 0 || (close + 1 < entry.size() && entry.at(close + 1) != QLatin1Char(':'))) {
            return false;
        }
        name = entry.mid(1, close - 1);
        separator = close + 1 < entry.size() ? close + 1 : -1;
    } else if (entry.count(QLatin1Char(':')) == 1) {
        // More than one colon is an IPv6 address without brackets, and so without a port.
        separator = entry.indexOf(QLatin1Char(':'));
        name = entry.left(separator);
    }
    if (separator >= 0) {
        bool ok = false;
        if (entry.mid(separator + 1).toUShort(&ok) != port || !ok) {
            return false;
        }
    }
    return host.compare(name, Qt::CaseInsensitive) == 0;
}

} // namespace

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
    const int port = effectivePort(url);
    return std::any_of(m_hosts.cbegin(), m_hosts.cend(),
                       [&](const QString &entry) { return entryCovers(entry, host, port); });
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
    const int port = effectivePort(url);
    if (host.isEmpty() || port < 0) {
        return QString();
    }
    // An IPv6 address is written in brackets, as in a URL, so that its colons do not read as a port.
    const QString name =
        host.contains(QLatin1Char(':')) ? QString(QLatin1Char('[') + host + QLatin1Char(']')) : host;
    return name + QLatin1Char(':') + QString::number(port);
}

} // namespace vn::network

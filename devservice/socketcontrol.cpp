#include "socketcontrol.h"

#include <dirent.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>

#include <cstdlib>
#include <functional>

namespace vn::devservice {

namespace {

struct Endpoint
{
    std::string address;
    int port = -1;
};

bool describe(const sockaddr_storage &address, socklen_t length, Endpoint *endpoint)
{
    char host[NI_MAXHOST];
    char service[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, host, sizeof host, service,
                    sizeof service, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return false;
    }
    endpoint->address = host;
    endpoint->port = std::atoi(service);
    return true;
}

// Calls @p visit with every connected TCP socket of the process and its two endpoints.
void forEachConnection(const std::function<bool(int, const Endpoint &, const Endpoint &)> &visit)
{
    DIR *directory = opendir("/proc/self/fd");
    if (!directory) {
        return;
    }
    const int own = dirfd(directory);
    while (const dirent *entry = readdir(directory)) {
        char *end = nullptr;
        const long descriptor = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || descriptor == own) {
            continue;
        }
        sockaddr_storage local{};
        sockaddr_storage remote{};
        socklen_t localLength = sizeof local;
        socklen_t remoteLength = sizeof remote;
        Endpoint localEndpoint;
        Endpoint remoteEndpoint;
        if (getsockname(int(descriptor), reinterpret_cast<sockaddr *>(&local), &localLength) != 0 ||
            (local.ss_family != AF_INET && local.ss_family != AF_INET6) ||
            getpeername(int(descriptor), reinterpret_cast<sockaddr *>(&remote), &remoteLength) != 0 ||
            !describe(local, localLength, &localEndpoint) ||
            !describe(remote, remoteLength, &remoteEndpoint)) {
            continue;
        }
        if (!visit(int(descriptor), localEndpoint, remoteEndpoint)) {
            break;
        }
    }
    closedir(directory);
}

// The descriptor of the connection whose endpoints are given, or -1.
int findConnection(const std::string &localAddress, int localPort, const std::string &remoteAddress,
                   int remotePort)
{
    int found = -1;
    forEachConnection([&](int descriptor, const Endpoint &local, const Endpoint &remote) {
        if (local.port != localPort || remote.port != remotePort || local.address != localAddress ||
            remote.address != remoteAddress) {
            return true;
        }
        found = descriptor;
        return false;
    });
    return found;
}

bool sameConnection(int descriptor, const std::string &localAddress, int localPort,
                    const std::string &remoteAddress, int remotePort)
{
    sockaddr_storage local{};
    sockaddr_storage remote{};
    socklen_t localLength = sizeof local;
    socklen_t remoteLength = sizeof remote;
    Endpoint localEndpoint;
    Endpoint remoteEndpoint;
    return getsockname(descriptor, reinterpret_cast<sockaddr *>(&local), &localLength) == 0 &&
           getpeername(descriptor, reinterpret_cast<sockaddr *>(&remote), &remoteLength) == 0 &&
           describe(local, localLength, &localEndpoint) && describe(remote, remoteLength, &remoteEndpoint) &&
           localEndpoint.port == localPort && remoteEndpoint.port == remotePort &&
           localEndpoint.address == localAddress && remoteEndpoint.address == remoteAddress;
}

} // namespace

bool SocketControl::acknowledgeNow(const std::string &localAddress, int localPort,
                                   const std::string &remoteAddress, int remotePort)
{
    // A serving thread keeps one connection for many requests: look its descriptor up once.
    thread_local int cached = -1;
    if (cached < 0 || !sameConnection(cached, localAddress, localPort, remoteAddress, remotePort)) {
        cached = findConnection(localAddress, localPort, remoteAddress, remotePort);
    }
    const int on = 1;
    return cached >= 0 && setsockopt(cached, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on) == 0;
}

bool SocketControl::shutDownConnection(const std::string &localAddress, int localPort,
                                       const std::string &remoteAddress, int remotePort)
{
    const int descriptor = findConnection(localAddress, localPort, remoteAddress, remotePort);
    return descriptor >= 0 && shutdown(descriptor, SHUT_RDWR) == 0;
}

int SocketControl::shutDownConnections(const std::string &localAddress, int localPort)
{
    int count = 0;
    forEachConnection([&](int descriptor, const Endpoint &local, const Endpoint &) {
        if (local.port == localPort && (localAddress.empty() || local.address == localAddress) &&
            shutdown(descriptor, SHUT_RDWR) == 0) {
            ++count;
        }
        return true;
    });
    return count;
}

} // namespace vn::devservice

#include "connectioncontrol.h"

#include <sys/socket.h>

#if defined(__linux__)
#include <dirent.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>

#include <cstdlib>
#include <functional>
#endif

namespace vn::devservice {

void ConnectionControl::setListeningOptions(int socket)
{
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
}

#if defined(__linux__)

namespace {

bool describe(const sockaddr_storage &address, socklen_t length, std::string *host, int *port)
{
    char hostText[NI_MAXHOST];
    char serviceText[NI_MAXSERV];
    if (getnameinfo(reinterpret_cast<const sockaddr *>(&address), length, hostText, sizeof hostText,
                    serviceText, sizeof serviceText, NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return false;
    }
    *host = hostText;
    *port = std::atoi(serviceText);
    return true;
}

// The endpoints of @p descriptor when it is a connected IPv4 or IPv6 socket.
bool endpointsOf(int descriptor, ConnectionControl::Endpoints *endpoints)
{
    sockaddr_storage local{};
    sockaddr_storage remote{};
    socklen_t localLength = sizeof local;
    socklen_t remoteLength = sizeof remote;
    return getsockname(descriptor, reinterpret_cast<sockaddr *>(&local), &localLength) == 0 &&
           (local.ss_family == AF_INET || local.ss_family == AF_INET6) &&
           getpeername(descriptor, reinterpret_cast<sockaddr *>(&remote), &remoteLength) == 0 &&
           describe(local, localLength, &endpoints->localAddress, &endpoints->localPort) &&
           describe(remote, remoteLength, &endpoints->remoteAddress, &endpoints->remotePort);
}

bool operator==(const ConnectionControl::Endpoints &first, const ConnectionControl::Endpoints &second)
{
    return first.localPort == second.localPort && first.remotePort == second.remotePort &&
           first.localAddress == second.localAddress && first.remoteAddress == second.remoteAddress;
}

// Calls @p visit with every connected socket of the process until it returns false.
void forEachConnection(const std::function<bool(int, const ConnectionControl::Endpoints &)> &visit)
{
    DIR *directory = opendir("/proc/self/fd");
    if (!directory) {
        return;
    }
    const int own = dirfd(directory);
    while (const dirent *entry = readdir(directory)) {
        char *end = nullptr;
        const long descriptor = std::strtol(entry->d_name, &end, 10);
        ConnectionControl::Endpoints endpoints;
        if (end == entry->d_name || *end != '\0' || descriptor == own ||
            !endpointsOf(int(descriptor), &endpoints)) {
            continue;
        }
        if (!visit(int(descriptor), endpoints)) {
            break;
        }
    }
    closedir(directory);
}

int find(const ConnectionControl::Endpoints &connection)
{
    int found = -1;
    forEachConnection([&](int descriptor, const ConnectionControl::Endpoints &endpoints) {
        if (!(endpoints == connection)) {
            return true;
        }
        found = descriptor;
        return false;
    });
    return found;
}

} // namespace

bool ConnectionControl::shutDown(const Endpoints &connection)
{
    const int descriptor = find(connection);
    return descriptor >= 0 && shutdown(descriptor, SHUT_RDWR) == 0;
}

bool ConnectionControl::acknowledgeNow(const Endpoints &connection)
{
    // A serving thread keeps one connection for many requests: look its descriptor up once.
    thread_local int cached = -1;
    Endpoints endpoints;
    if (cached < 0 || !endpointsOf(cached, &endpoints) || !(endpoints == connection)) {
        cached = find(connection);
    }
    const int on = 1;
    return cached >= 0 && setsockopt(cached, IPPROTO_TCP, TCP_QUICKACK, &on, sizeof on) == 0;
}

int ConnectionControl::shutDownAll(const std::string &localAddress, int localPort)
{
    int count = 0;
    forEachConnection([&](int descriptor, const Endpoints &endpoints) {
        if (endpoints.localPort == localPort &&
            (localAddress.empty() || endpoints.localAddress == localAddress) &&
            shutdown(descriptor, SHUT_RDWR) == 0) {
            ++count;
        }
        return true;
    });
    return count;
}

#else

bool ConnectionControl::shutDown(const Endpoints &)
{
    return false;
}

bool ConnectionControl::acknowledgeNow(const Endpoints &)
{
    return false;
}

int ConnectionControl::shutDownAll(const std::string &, int)
{
    return 0;
}

#endif

} // namespace vn::devservice

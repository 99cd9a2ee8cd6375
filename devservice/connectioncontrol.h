#pragma once

#include <string>

namespace vn::devservice {

/// The socket work that the HTTP layer does not offer, kept in this one place because it depends on
/// the system.
///
/// cpp-httplib gives its handlers no access to the socket of the request they serve, and lets a
/// stopped server wait for idle keep-alive connections to time out. On Linux the connection is
/// found among the process's descriptors (/proc/self/fd) by its endpoints and acted on directly.
/// Elsewhere the lookups find nothing: a dropped connection is answered with an empty 500 instead,
/// requests with a body wait for the client's delayed acknowledgement, and stopping waits for the
/// keep-alive time-out.
class ConnectionControl
{
public:
    ConnectionControl() = delete;

    /// Both ends of one connection, numeric, as cpp-httplib reports them.
    struct Endpoints
    {
        std::string localAddress;
        int localPort = 0;
        std::string remoteAddress;
        int remotePort = 0;
    };

    /// Shuts the connection down without an answer. True when it was found.
    static bool shutDown(const Endpoints &connection);

    /// Makes the connection acknowledge what it received at once instead of delaying the
    /// acknowledgement (TCP_QUICKACK). Call it on the thread that serves the connection: the
    /// descriptor found is remembered per thread. True when it was found.
    static bool acknowledgeNow(const Endpoints &connection);

    /// Shuts down every accepted connection whose local endpoint is @p localAddress (empty: any)
    /// and @p localPort; returns how many.
    static int shutDownAll(const std::string &localAddress, int localPort);

    /// The listening socket's options: a port in use is never shared (no SO_REUSEPORT, which would
    /// split the connections between two listeners), but can be bound again at once after a stop.
    static void setListeningOptions(int socket);
};

} // namespace vn::devservice

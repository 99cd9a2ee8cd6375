#pragma once

#include <string>

namespace vn::devservice {

/// Ends connections of the service's own HTTP server from the outside.
///
/// cpp-httplib gives its handlers no access to the socket of the request they serve, and lets a
/// stopped server wait for idle keep-alive connections to time out. Both are solved by finding the
/// connection among the process's descriptors (Linux: /proc/self/fd) by its endpoints and shutting
/// it down; the server then sees the connection end and releases it.
class SocketControl
{
public:
    SocketControl() = delete;

    /// Shuts down the one connection with these endpoints (numeric addresses, as cpp-httplib
    /// reports them). True when it was found.
    static bool shutDownConnection(const std::string &localAddress, int localPort,
                                   const std::string &remoteAddress, int remotePort);

    /// Makes the connection with these endpoints acknowledge what it received at once instead of
    /// delaying the acknowledgement (Linux TCP_QUICKACK). Call it on the thread that serves the
    /// connection: the descriptor found is remembered per thread. True when it was found.
    static bool acknowledgeNow(const std::string &localAddress, int localPort,
                               const std::string &remoteAddress, int remotePort);

    /// Shuts down every accepted connection whose local endpoint is @p localAddress (empty: any)
    /// and @p localPort; returns how many.
    static int shutDownConnections(const std::string &localAddress, int localPort);
};

} // namespace vn::devservice

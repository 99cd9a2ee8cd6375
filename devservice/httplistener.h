#pragma once

#include "apiresponse.h"

#include <QString>

#include <functional>
#include <memory>
#include <string>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace vn::devservice {

/// One HTTP server on a thread of its own, for the account service or a played service: binds,
/// serves every method with one handler on a pool of worker threads, logs one line per request
/// (method, path, status, milliseconds; never headers, queries or bodies) and stops at once.
class HttpListener
{
public:
    using Handler = std::function<void(const httplib::Request &, httplib::Response &)>;

    HttpListener();
    ~HttpListener();

    /// Binds @p port (0: a free one) on @p address and serves every request with @p handler on
    /// @p workers threads; bodies over @p maximumBodySize are refused with 413. False when the
    /// address or port cannot be bound (a port in use is never shared).
    bool start(const QString &address, int port, size_t workers, qint64 maximumBodySize,
               const Handler &handler);
    /// Ends open connections and waits for the threads; nothing when it does not serve.
    void stop();
    bool isServing() const;
    int port() const;

    /// Answers with @p answer; a status that has no body is sent without one.
    static void write(httplib::Response &response, const ApiResponse &answer);
    /// 0.0.0.0, :: and the like: a listener on every address.
    static bool isWildcard(const QString &address);
    /// Sends @p answer's status and headers with the length of its whole body, then half of the
    /// body, and closes the connection.
    static void writeTruncated(httplib::Response &response, const ApiResponse &answer);
    /// Closes the request's connection without any answer.
    static void dropConnection(const httplib::Request &request, httplib::Response &response);

private:
    Q_DISABLE_COPY(HttpListener)
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    std::string m_localAddress; // empty for a wildcard address
    int m_port = 0;
};

} // namespace vn::devservice

#include "httplistener.h"

#include "connectioncontrol.h"
#include "logging_p.h"

#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QHostAddress>

#include <httplib.h>

namespace vn::devservice {

namespace {

constexpr size_t KeepAliveRequests = 1000;
constexpr int MaximumLoggedPathLength = 200;

// What the request logger needs to know about the request that the current thread serves.
struct RequestTiming
{
    QElapsedTimer timer;
    bool started = false;
    bool dropped = false;
};
thread_local RequestTiming currentRequest;

ConnectionControl::Endpoints endpointsOf(const httplib::Request &request)
{
    return {request.local_addr, request.local_port, request.remote_addr, request.remote_port};
}

bool isKnownMethod(const std::string &method)
{
    for (const char *known : {"GET", "HEAD", "POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
        if (method == known) {
            return true;
        }
    }
    return false;
}

httplib::Server::HandlerResponse beforeRouting(const httplib::Request &request, httplib::Response &response)
{
    currentRequest.timer.start();
    currentRequest.started = true;
    currentRequest.dropped = false;
    // The HTTP layer holds a body to the size limit only when its Content-Length announces it: a
    // chunked body would be read into memory however large it grows. No client of this service
    // sends one. An answer alone would leave the unread chunks on the connection, to be parsed (and
    // logged) as further requests, so the connection is ended unread instead.
    if (request.has_header("Transfer-Encoding")) {
        HttpListener::dropConnection(request, response);
        response.status = 411;
        return httplib::Server::HandlerResponse::Handled;
    }
    // Qt writes a request's headers and body separately and leaves Nagle's algorithm on: the body
    // waits for the acknowledgement of the headers, which the kernel would delay by up to 40 ms.
    // Acknowledging at once keeps a POST as quick as a GET.
    if (request.get_header_value_count("Content-Length") > 0 &&
        request.get_header_value("Content-Length") != "0") {
        ConnectionControl::acknowledgeNow(endpointsOf(request));
    }
    return httplib::Server::HandlerResponse::Unhandled;
}

// One line per request, also for those that never reach a handler (413, malformed requests).
void log(const httplib::Request &request, const httplib::Response &response)
{
    const qint64 elapsed = currentRequest.started ? currentRequest.timer.elapsed() : 0;
    currentRequest.started = false;
    const QByteArray path = QByteArray::fromStdString(request.path).left(MaximumLoggedPathLength);
    // A request line that did not parse leaves its first word as the method: on a connection whose
    // framing went wrong that word is a piece of some body, possibly a credential.
    const char *const method = isKnownMethod(request.method) ? request.method.c_str() : "-";
    if (currentRequest.dropped) {
        qCInfo(lcDevServiceRequest, "%s %s dropped %lld ms", method, path.constData(), elapsed);
    } else {
        qCInfo(lcDevServiceRequest, "%s %s %d %lld ms", method, path.constData(), response.status, elapsed);
    }
    currentRequest.dropped = false;
}

} // namespace

HttpListener::HttpListener() = default;

HttpListener::~HttpListener()
{
    stop();
}

bool HttpListener::start(const QString &address, int port, size_t workers, qint64 maximumBodySize,
                         const Handler &handler)
{
    auto server = std::make_unique<httplib::Server>();
    // cpp-httplib takes ownership of the queue it gets from this factory and deletes it. Each
    // worker holds one connection for as long as the client keeps it alive.
    server->new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
    server->set_keep_alive_max_count(KeepAliveRequests);
    server->set_socket_options([](socket_t socket) { ConnectionControl::setListeningOptions(int(socket)); });
    // Headers and body leave in separate writes; without this, each answer waits for the client's
    // delayed acknowledgement.
    server->set_tcp_nodelay(true);
    server->set_payload_max_length(size_t(maximumBodySize));
    server->set_pre_routing_handler(beforeRouting);
    server->set_logger(log);
    // Every method reaches the handler, which answers those it does not serve with 405.
    server->Get(".*", handler);
    server->Post(".*", handler);
    server->Put(".*", handler);
    server->Patch(".*", handler);
    server->Delete(".*", handler);
    server->Options(".*", handler);

    const std::string host = address.toStdString();
    m_port = port == 0 ? server->bind_to_any_port(host)
                       : (port <= 65535 && server->bind_to_port(host, port) ? port : -1);
    if (m_port <= 0) {
        qCWarning(lcDevService, "Cannot listen on %s port %d", qPrintable(address), port);
        return false;
    }
    m_server = std::move(server);
    m_localAddress = isWildcard(address) ? std::string() : host;
    httplib::Server *running = m_server.get();
    m_thread = std::thread([running] { running->listen_after_bind(); });
    // stop() only reaches a server whose loop runs.
    const QDeadlineTimer deadline(10000);
    while (!running->is_running() && !deadline.hasExpired()) {
        std::this_thread::yield();
    }
    return true;
}

void HttpListener::stop()
{
    if (!m_server) {
        return;
    }
    m_server->stop();
    // Workers wait on idle keep-alive connections for seconds; ending them lets the pool stop now.
    ConnectionControl::shutDownAll(m_localAddress, m_port);
    if (m_thread.joinable()) {
        m_thread.join();
    }
    m_server.reset();
}

bool HttpListener::isServing() const
{
    return m_server != nullptr;
}

int HttpListener::port() const
{
    return m_port;
}

void HttpListener::write(httplib::Response &response, const ApiResponse &answer)
{
    response.status = answer.status;
    for (const auto &header : answer.headers) {
        response.set_header(header.first.toStdString(), header.second.toStdString());
    }
    if (ApiResponse::mayHaveBody(answer.status)) {
        response.set_content(answer.body.toStdString(), "application/json");
    }
}

void HttpListener::writeTruncated(httplib::Response &response, const ApiResponse &answer)
{
    write(response, answer);
    const std::string body = answer.body.toStdString();
    response.body.clear();
    // A provider that fails after its first part makes the server give up the connection there.
    response.set_content_provider(body.size(), "application/json",
                                  [body](size_t offset, size_t, httplib::DataSink &sink) {
                                      if (offset == 0) {
                                          sink.write(body.data(), body.size() / 2);
                                      }
                                      return false;
                                  });
    currentRequest.dropped = true;
}

bool HttpListener::isWildcard(const QString &address)
{
    const QHostAddress host(address);
    return host == QHostAddress::AnyIPv4 || host == QHostAddress::AnyIPv6 || host == QHostAddress::Any;
}

void HttpListener::dropConnection(const httplib::Request &request, httplib::Response &response)
{
    currentRequest.dropped = true;
    ConnectionControl::shutDown(endpointsOf(request));
    response.status = 500;
}

} // namespace vn::devservice

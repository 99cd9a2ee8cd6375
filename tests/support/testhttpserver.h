#pragma once

#include <requestjournal.h>

#include <QList>
#include <QString>
#include <QUrl>

#include <memory>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib

namespace vn::test {

/// A real HTTP server on loopback for tests: cpp-httplib on its own thread, listening on a port the
/// system picks. Handlers run on the server's threads; the journal of received requests is safe to
/// read from the test thread, and a request is in it before its response is sent.
class TestHttpServer
{
public:
    using ReceivedRequest = vn::devservice::RecordedRequest;

    /// Listens on @p host (a loopback address) on a free port.
    explicit TestHttpServer(const QString &host = QStringLiteral("127.0.0.1"));
    /// Serves https with the given PEM files; testCertificateFile() and testPrivateKeyFile() are a
    /// self-signed pair for 127.0.0.1 and localhost that clients must trust explicitly.
    TestHttpServer(const QString &host, const QString &certificateFile, const QString &privateKeyFile);
    ~TestHttpServer();

    static QString testCertificateFile();
    static QString testPrivateKeyFile();

    bool isListening() const { return m_port > 0; }
    int port() const { return m_port; }
    QString host() const { return m_host; }
    /// http://host:port + @p path (https for a TLS server)
    QUrl url(const QString &path = QStringLiteral("/")) const;

    /// The server, for registering handlers with Get/Post/...; register before sending requests.
    httplib::Server &server() { return *m_server; }

    QList<ReceivedRequest> requests() const { return m_journal.requests(); }
    ReceivedRequest lastRequest() const { return m_journal.last(); }
    int requestCount() const { return m_journal.size(); }
    void clearRequests() { m_journal.clear(); }

private:
    void listen();

    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    QString m_host;
    int m_port = -1;
    bool m_tls = false;
    vn::devservice::RequestJournal m_journal{vn::devservice::RequestJournal::Unlimited};
};

} // namespace vn::test

#include "testhttpserver.h"

#include <httplib.h>

#include <QFile>
#include <QFileInfo>

namespace vn::test {

TestHttpServer::TestHttpServer(const QString &host)
    : m_server(std::make_unique<httplib::Server>())
    , m_host(host)
{
    listen();
}

TestHttpServer::TestHttpServer(const QString &host, const QString &certificateFile,
                               const QString &privateKeyFile)
    : m_server(std::make_unique<httplib::SSLServer>(QFile::encodeName(certificateFile).constData(),
                                                    QFile::encodeName(privateKeyFile).constData()))
    , m_host(host)
    , m_tls(true)
{
    if (m_server->is_valid()) {
        listen();
    }
}

QString TestHttpServer::testCertificateFile()
{
    return QFileInfo(QStringLiteral(__FILE__)).absolutePath() + QStringLiteral("/tls/certificate.pem");
}

QString TestHttpServer::testPrivateKeyFile()
{
    return QFileInfo(QStringLiteral(__FILE__)).absolutePath() + QStringLiteral("/tls/key.pem");
}

void TestHttpServer::listen()
{
    // Responses go out in several writes; without this, Nagle meets the client's delayed ACK and a
    // reused connection waits 40 ms per exchange.
    m_server->set_tcp_nodelay(true);
    // Journal before the response goes out (the logger only runs after it is written), so that a
    // client that has its answer always finds its request here.
    m_server->set_post_routing_handler(
        [this](const httplib::Request &request, httplib::Response &) { m_journal.record(request); });
    m_port = m_server->bind_to_any_port(m_host.toStdString());
    if (m_port > 0) {
        m_thread = std::thread([this] { m_server->listen_after_bind(); });
        // stop() only reaches a server whose loop runs: wait for it, so a quick teardown cannot hang.
        while (!m_server->is_running()) {
            std::this_thread::yield();
        }
    }
}

TestHttpServer::~TestHttpServer()
{
    m_server->stop();
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

QUrl TestHttpServer::url(const QString &path) const
{
    QUrl url;
    url.setScheme(m_tls ? QStringLiteral("https") : QStringLiteral("http"));
    url.setHost(m_host);
    url.setPort(m_port);
    url.setPath(path);
    return url;
}

} // namespace vn::test

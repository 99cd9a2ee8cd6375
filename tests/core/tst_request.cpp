#include "testhttpserver.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>

#include <QJsonDocument>
#include <QJsonParseError>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTcpServer>
#include <QTest>

#include <httplib.h>

#include <atomic>
#include <chrono>

using vn::Request;
using vn::test::TestHttpServer;
using RawHeaders = QMap<QByteArray, QByteArray>;

namespace {

/// Collects what the request layer logs, and hands every message on to the previous handler so
/// that QTest::ignoreMessage keeps working.
class RequestLogCollector
{
public:
    RequestLogCollector() { s_previous = qInstallMessageHandler(&RequestLogCollector::handle); }
    ~RequestLogCollector() { qInstallMessageHandler(s_previous); }

    QStringList messages() const { return s_messages; }
    void clear() { s_messages.clear(); }

private:
    static void handle(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        if (qstrcmp(context.category, "vantro.request") == 0) {
            s_messages.append(message);
        }
        s_previous(type, context, message);
    }

    static inline QtMessageHandler s_previous = nullptr;
    static inline QStringList s_messages;
};

/// Manager that writes a credential for one origin only, the way the authorization layer does.
class CredentialWritingManager : public QNetworkAccessManager
{
public:
    explicit CredentialWritingManager(int trustedPort)
        : m_trustedPort(trustedPort)
    {}

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *outgoingData) override
    {
        QNetworkRequest stamped(request);
        if (request.url().port() == m_trustedPort) {
            stamped.setRawHeader("X-Credential", "for-the-trusted-origin");
        }
        return QNetworkAccessManager::createRequest(operation, stamped, outgoingData);
    }

private:
    int m_trustedPort;
};

int releasedPort()
{
    QTcpServer probe;
    if (!probe.listen(QHostAddress::LocalHost, 0)) {
        return 0;
    }
    return probe.serverPort();
}

} // namespace

class TestRequest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init();
    void cleanup();

    void sendsMethodBodyAndHeaders_data();
    void sendsMethodBodyAndHeaders();
    void httpErrorStatus_data();
    void httpErrorStatus();
    void jsonAccessors_data();
    void jsonAccessors();
    void timeOut();
    void connectionRefused();
    void responseSizeLimit_data();
    void responseSizeLimit();
    void followsRedirects_data();
    void followsRedirects();
    void tooManyRedirects();
    void credentialsAreDecidedPerHop_data();
    void credentialsAreDecidedPerHop();
    void refusesRedirectFromHttpsToHttp();
    void ownership();
    void abortFinishesOnce_data();
    void abortFinishesOnce();
    void logsOneWarningPerFailure_data();
    void logsOneWarningPerFailure();

private:
    QNetworkRequest requestFor(const QString &path) const { return QNetworkRequest(m_server.url(path)); }

    TestHttpServer m_server;
    QNetworkAccessManager m_network;
    std::unique_ptr<QObject> m_owner;
    std::atomic<bool> m_releaseSlow{false};
    std::atomic<bool> m_slowEntered{false};
};

void TestRequest::initTestCase()
{
    QVERIFY(m_server.isListening());
    auto &server = m_server.server();
    const auto ok = [](const httplib::Request &, httplib::Response &response) {
        response.set_content("{}", "application/json");
    };
    server.Get("/echo", ok).Post("/echo", ok).Put("/echo", ok).Patch("/echo", ok).Delete("/echo", ok);
    server.Get(R"(/status/(\d+))", [](const httplib::Request &request, httplib::Response &response) {
        response.status = std::stoi(request.matches[1]);
        response.set_content(R"({"error":"failed"})", "application/json");
    });
    server.Get("/json/object", [](const httplib::Request &, httplib::Response &response) {
        response.set_content(R"({"name":"value"})", "application/json");
    });
    server.Get("/json/array", [](const httplib::Request &, httplib::Response &response) {
        response.set_content(R"([1,"two"])", "application/json");
    });
    server.Get("/json/invalid", [](const httplib::Request &, httplib::Response &response) {
        response.set_content(R"({"name":)", "application/json");
    });
    server.Get("/slow", [this](const httplib::Request &, httplib::Response &response) {
        m_slowEntered = true;
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
        while (!m_releaseSlow && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        response.set_content("{}", "application/json");
    });
    server.Get(R"(/big/(\d+))", [](const httplib::Request &request, httplib::Response &response) {
        response.set_content(std::string(std::stoul(request.matches[1]), 'x'), "text/plain");
    });
    server.Get(R"(/chunked/(\d+))", [](const httplib::Request &request, httplib::Response &response) {
        const std::size_t total = std::stoul(request.matches[1]);
        response.set_chunked_content_provider(
            "text/plain", [total](std::size_t offset, httplib::DataSink &sink) {
                if (offset >= total) {
                    sink.done();
                    return true;
                }
                const std::string piece(std::min<std::size_t>(512, total - offset), 'x');
                return sink.write(piece.data(), piece.size());
            });
    });
    // Announces a large body, then sends nothing until released: only the announcement can stop it.
    server.Get("/announced", [this](const httplib::Request &, httplib::Response &response) {
        response.set_content_provider(
            1 << 20, "text/plain", [this](std::size_t, std::size_t, httplib::DataSink &) {
                const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(10);
                while (!m_releaseSlow && std::chrono::steady_clock::now() < giveUp) {
                    std::this_thread::sleep_for(std::chrono::milliseconds(5));
                }
                return false;
            });
    });
    const auto redirect = [](const httplib::Request &request, httplib::Response &response) {
        response.set_redirect("/echo", std::stoi(request.matches[1]));
    };
    server.Get(R"(/redirect/(\d+))", redirect).Post(R"(/redirect/(\d+))", redirect);
    server.Get("/away", [](const httplib::Request &request, httplib::Response &response) {
        response.set_redirect(request.get_param_value("to"), 307);
    });
    server.Get("/loop", [](const httplib::Request &, httplib::Response &response) {
        response.set_redirect("/loop", 302);
    });
}

void TestRequest::init()
{
    m_owner = std::make_unique<QObject>();
    m_server.clearRequests();
    m_releaseSlow = false;
    m_slowEntered = false;
}

void TestRequest::cleanup()
{
    m_releaseSlow = true;
    m_owner.reset();
}

void TestRequest::sendsMethodBodyAndHeaders_data()
{
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("bodyKind");
    QTest::addColumn<QByteArray>("contentType");
    QTest::addColumn<RawHeaders>("rawHeaders");
    QTest::addColumn<QByteArray>("expectedBody");
    QTest::addColumn<QByteArray>("expectedContentType");

    const QByteArray json = "application/json";
    const QByteArray object = R"({"a":"x y","b":[1,2]})";
    const QByteArray array = R"([{"op":"add","path":"/a"}])";
    const QByteArray form = "a=1&b=2";
    const QByteArray formType = "application/x-www-form-urlencoded";
    const RawHeaders none;

    QTest::newRow("GET") << QByteArray("GET") << "none" << QByteArray() << none << QByteArray()
                         << QByteArray();
    QTest::newRow("DELETE") << QByteArray("DELETE") << "none" << QByteArray() << none << QByteArray()
                            << QByteArray();
    QTest::newRow("POST object") << QByteArray("POST") << "object" << json << none << object << json;
    QTest::newRow("POST bytes") << QByteArray("POST") << "bytes" << formType << none << form << formType;
    QTest::newRow("PUT object") << QByteArray("PUT") << "object" << json << none << object << json;
    QTest::newRow("PUT bytes") << QByteArray("PUT") << "bytes" << formType << none << form << formType;
    QTest::newRow("PATCH object") << QByteArray("PATCH") << "object" << json << none << object << json;
    QTest::newRow("PATCH bytes") << QByteArray("PATCH") << "bytes" << formType << none << form << formType;
    QTest::newRow("PATCH array, extra header")
        << QByteArray("PATCH") << "array" << json << RawHeaders{{"X-Extra", "1"}} << array << json;
    QTest::newRow("PATCH array, raw Content-Type replaces")
        << QByteArray("PATCH") << "array" << json
        << RawHeaders{{"Content-Type", "application/json-patch+json"}, {"X-Extra", "2"}} << array
        << QByteArray("application/json-patch+json");
}

void TestRequest::sendsMethodBodyAndHeaders()
{
    QFETCH(QByteArray, method);
    QFETCH(QString, bodyKind);
    QFETCH(QByteArray, contentType);
    QFETCH(RawHeaders, rawHeaders);
    QFETCH(QByteArray, expectedBody);
    QFETCH(QByteArray, expectedContentType);

    QNetworkRequest networkRequest = requestFor(QStringLiteral("/echo"));
    if (!contentType.isEmpty()) {
        networkRequest.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
    }
    for (auto it = rawHeaders.cbegin(); it != rawHeaders.cend(); ++it) {
        networkRequest.setRawHeader(it.key(), it.value());
    }
    // Indented on purpose: what goes out must be the compact form.
    const QJsonObject object = QJsonDocument::fromJson(R"({ "b": [1, 2], "a": "x y" })").object();
    const QJsonArray array = QJsonDocument::fromJson(R"([ { "op": "add", "path": "/a" } ])").array();
    const QByteArray bytes = "a=1&b=2";
    auto *owner = m_owner.get();

    Request *request = nullptr;
    if (method == "GET") {
        request = new vn::GetRequest(networkRequest, &m_network, owner);
    } else if (method == "DELETE") {
        request = new vn::DeleteRequest(networkRequest, &m_network, owner);
    } else if (method == "POST") {
        request = bodyKind == QLatin1String("object")
                      ? new vn::PostRequest(networkRequest, &m_network, object, owner)
                      : new vn::PostRequest(networkRequest, &m_network, bytes, owner);
    } else if (method == "PUT") {
        request = bodyKind == QLatin1String("object")
                      ? new vn::PutRequest(networkRequest, &m_network, object, owner)
                      : new vn::PutRequest(networkRequest, &m_network, bytes, owner);
    } else if (bodyKind == QLatin1String("object")) {
        request = new vn::PatchRequest(networkRequest, &m_network, object, owner);
    } else if (bodyKind == QLatin1String("array")) {
        request = new vn::PatchRequest(networkRequest, &m_network, array, owner);
    } else {
        request = new vn::PatchRequest(networkRequest, &m_network, bytes, owner);
    }
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(!request->isRunning());

    QVERIFY(finished.wait());
    QVERIFY(request->isOk(200));
    QCOMPARE(request->error(), QNetworkReply::NoError);
    QCOMPARE(m_server.requestCount(), 1);
    const auto received = m_server.lastRequest();
    QCOMPARE(received.method, method);
    QCOMPARE(received.body, expectedBody);
    QCOMPARE(received.headers.value("content-type"), expectedContentType);
    for (auto it = rawHeaders.cbegin(); it != rawHeaders.cend(); ++it) {
        QCOMPARE(received.headers.value(it.key().toLower()), it.value());
    }
}

void TestRequest::httpErrorStatus_data()
{
    QTest::addColumn<int>("status");
    QTest::newRow("400") << 400;
    QTest::newRow("401") << 401;
    QTest::newRow("404") << 404;
    QTest::newRow("422") << 422;
    QTest::newRow("500") << 500;
    QTest::newRow("503") << 503;
}

void TestRequest::httpErrorStatus()
{
    QFETCH(int, status);
    auto *request =
        new vn::GetRequest(requestFor(QStringLiteral("/status/%1").arg(status)), &m_network, m_owner.get());
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QCOMPARE(request->responseCode(), status);
    QVERIFY(!request->isOk(200));
    // The exchange itself went through: the status alone decides.
    QVERIFY(request->isOk(status));
    QVERIFY(request->error() != QNetworkReply::NoError);
    QCOMPARE(request->responseObject().value(QLatin1String("error")).toString(), QStringLiteral("failed"));
}

void TestRequest::jsonAccessors_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<bool>("parses");
    QTest::addColumn<QJsonObject>("object");
    QTest::addColumn<QJsonArray>("array");

    QTest::newRow("object") << "/json/object" << true << QJsonObject{{"name", "value"}} << QJsonArray();
    QTest::newRow("array") << "/json/array" << true << QJsonObject() << QJsonArray{1, "two"};
    QTest::newRow("invalid") << "/json/invalid" << false << QJsonObject() << QJsonArray();
}

void TestRequest::jsonAccessors()
{
    QFETCH(QString, path);
    QFETCH(bool, parses);
    QFETCH(QJsonObject, object);
    QFETCH(QJsonArray, array);

    auto *request = new vn::GetRequest(requestFor(path), &m_network, m_owner.get());
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());
    QVERIFY(request->isOk(200));

    QJsonParseError objectError{};
    QJsonParseError arrayError{};
    QCOMPARE(request->responseObject(&objectError), object);
    QCOMPARE(request->responseArray(&arrayError), array);
    QCOMPARE(objectError.error == QJsonParseError::NoError, parses);
    QCOMPARE(arrayError.error == QJsonParseError::NoError, parses);
    QVERIFY(!request->rawResponse().isEmpty());
    QCOMPARE(request->responseHeader("CONTENT-TYPE"), QByteArray("application/json"));
}

void TestRequest::timeOut()
{
    auto *request = new vn::GetRequest(requestFor(QStringLiteral("/slow")), &m_network, m_owner.get());
    request->setTimeout(100);
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QCOMPARE(request->responseCode(), 0);
    QCOMPARE(request->error(), QNetworkReply::TimeoutError);
    QVERIFY(!request->isOk(200));
    QVERIFY(!request->isOk(0));
    QVERIFY(m_slowEntered);
}

void TestRequest::connectionRefused()
{
    const int port = releasedPort();
    QVERIFY(port > 0);
    auto *request = new vn::GetRequest(
        QNetworkRequest(QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(port))), &m_network, m_owner.get());
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QCOMPARE(request->responseCode(), 0);
    QCOMPARE(request->error(), QNetworkReply::ConnectionRefusedError);
    QVERIFY(!request->isOk(200));
    QVERIFY(!request->isOk(0));
}

void TestRequest::responseSizeLimit_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<qint64>("limit");
    QTest::addColumn<bool>("accepted");

    QTest::newRow("announced length over the limit") << "/big/4096" << qint64(4095) << false;
    QTest::newRow("announced length at the limit") << "/big/4096" << qint64(4096) << true;
    QTest::newRow("chunked, bytes read over the limit") << "/chunked/4096" << qint64(4095) << false;
    QTest::newRow("chunked, bytes read at the limit") << "/chunked/4096" << qint64(4096) << true;
    QTest::newRow("far over the limit") << "/chunked/1000000" << qint64(1024) << false;
    QTest::newRow("announced length, nothing sent yet") << "/announced" << qint64(1024) << false;
}

void TestRequest::responseSizeLimit()
{
    QFETCH(QString, path);
    QFETCH(qint64, limit);
    QFETCH(bool, accepted);

    auto *request = new vn::GetRequest(requestFor(path), &m_network, m_owner.get());
    request->setMaximumResponseSize(limit);
    request->setTimeout(3000);
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QCOMPARE(request->isOk(200), accepted);
    if (accepted) {
        QCOMPARE(request->rawResponse(), QByteArray(4096, 'x'));
    } else {
        QCOMPARE(request->responseCode(), 0);
        QVERIFY(request->rawResponse().isEmpty());
        QCOMPARE(request->error(), QNetworkReply::UnknownContentError);
    }
    QTest::qWait(20);
    QCOMPARE(finished.count(), 1);
}

void TestRequest::followsRedirects_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QByteArray>("expectedMethod");
    QTest::addColumn<QByteArray>("expectedBody");
    QTest::addColumn<QByteArray>("expectedContentType");

    QTest::newRow("301 turns POST into GET") << 301 << QByteArray("GET") << QByteArray() << QByteArray();
    QTest::newRow("303 turns POST into GET") << 303 << QByteArray("GET") << QByteArray() << QByteArray();
    QTest::newRow("307 keeps POST and body")
        << 307 << QByteArray("POST") << QByteArray(R"({"a":1})") << QByteArray("application/json");
    QTest::newRow("308 keeps POST and body")
        << 308 << QByteArray("POST") << QByteArray(R"({"a":1})") << QByteArray("application/json");
}

void TestRequest::followsRedirects()
{
    QFETCH(int, status);
    QFETCH(QByteArray, expectedMethod);
    QFETCH(QByteArray, expectedBody);
    QFETCH(QByteArray, expectedContentType);

    QNetworkRequest networkRequest = requestFor(QStringLiteral("/redirect/%1").arg(status));
    networkRequest.setHeader(QNetworkRequest::ContentTypeHeader, QByteArray("application/json"));
    auto *request = new vn::PostRequest(networkRequest, &m_network, QJsonObject{{"a", 1}}, m_owner.get());
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QVERIFY(request->isOk(200));
    QCOMPARE(finished.count(), 1);
    const auto requests = m_server.requests();
    QCOMPARE(requests.size(), 2);
    QCOMPARE(requests.at(0).method, QByteArray("POST"));
    QCOMPARE(requests.at(1).path, QByteArray("/echo"));
    QCOMPARE(requests.at(1).method, expectedMethod);
    QCOMPARE(requests.at(1).body, expectedBody);
    QCOMPARE(requests.at(1).headers.value("content-type"), expectedContentType);
}

void TestRequest::tooManyRedirects()
{
    auto *request = new vn::GetRequest(requestFor(QStringLiteral("/loop")), &m_network, m_owner.get());
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());

    QCOMPARE(request->error(), QNetworkReply::TooManyRedirectsError);
    QCOMPARE(request->responseCode(), 0);
    QVERIFY(!request->isOk(302));
    // The first request and ten hops.
    QCOMPARE(m_server.requestCount(), 11);
}

void TestRequest::credentialsAreDecidedPerHop_data()
{
    QTest::addColumn<bool>("crossOrigin");
    QTest::newRow("same origin") << false;
    QTest::newRow("other origin") << true;
}

void TestRequest::credentialsAreDecidedPerHop()
{
    QFETCH(bool, crossOrigin);

    TestHttpServer target;
    QVERIFY(target.isListening());
    target.server().Get("/echo", [](const httplib::Request &, httplib::Response &response) {
        response.set_content("{}", "application/json");
    });
    const QUrl destination =
        crossOrigin ? target.url(QStringLiteral("/echo")) : m_server.url(QStringLiteral("/echo"));
    QUrl away = m_server.url(QStringLiteral("/away"));
    away.setQuery(QStringLiteral("to=") +
                  QString::fromLatin1(QUrl::toPercentEncoding(destination.toString())));

    CredentialWritingManager network(m_server.port());
    QNetworkRequest networkRequest(away);
    networkRequest.setRawHeader("Authorization", "Bearer set-by-caller");
    auto *request = new vn::GetRequest(networkRequest, &network, m_owner.get());
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());
    QVERIFY(request->isOk(200));

    const auto first = m_server.requests().value(0);
    QCOMPARE(first.path, QByteArray("/away"));
    QCOMPARE(first.headers.value("x-credential"), QByteArray("for-the-trusted-origin"));
    QCOMPARE(first.headers.value("authorization"), QByteArray("Bearer set-by-caller"));

    const auto hop = crossOrigin ? target.lastRequest() : m_server.lastRequest();
    QCOMPARE(hop.path, QByteArray("/echo"));
    QCOMPARE(hop.headers.contains("x-credential"), !crossOrigin);
    QCOMPARE(hop.headers.contains("authorization"), !crossOrigin);
}

void TestRequest::refusesRedirectFromHttpsToHttp()
{
    if (!QSslSocket::supportsSsl()) {
        QSKIP("Qt has no TLS backend here");
    }
    TestHttpServer secure(QStringLiteral("127.0.0.1"), TestHttpServer::testCertificateFile(),
                          TestHttpServer::testPrivateKeyFile());
    QVERIFY(secure.isListening());
    const QUrl plain = m_server.url(QStringLiteral("/echo"));
    // A TLS connection left open would hold up the server's shutdown until keep-alive runs out.
    secure.server().Get("/downgrade", [plain](const httplib::Request &, httplib::Response &response) {
        response.set_header("Connection", "close");
        response.set_redirect(plain.toString().toStdString(), 302);
    });
    secure.server().Get("/echo", [](const httplib::Request &, httplib::Response &response) {
        response.set_header("Connection", "close");
        response.set_content("{}", "application/json");
    });

    QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
    tls.setCaCertificates(QSslCertificate::fromPath(TestHttpServer::testCertificateFile()));
    QNetworkRequest networkRequest(secure.url(QStringLiteral("/echo")));
    networkRequest.setSslConfiguration(tls);

    // The TLS set-up itself works: a plain exchange succeeds.
    auto *control = new vn::GetRequest(networkRequest, &m_network, m_owner.get());
    QSignalSpy controlFinished(control, &Request::finished);
    QVERIFY(controlFinished.wait());
    QVERIFY2(control->isOk(200), qPrintable(control->errorString()));

    networkRequest.setUrl(secure.url(QStringLiteral("/downgrade")));
    auto *request = new vn::GetRequest(networkRequest, &m_network, m_owner.get());
    request->setSuppressErrors(true);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());
    QCOMPARE(request->error(), QNetworkReply::InsecureRedirectError);
    QCOMPARE(request->responseCode(), 0);
    QCOMPARE(m_server.requestCount(), 0);
}

void TestRequest::ownership()
{
    QPointer<Request> parented =
        new vn::GetRequest(requestFor(QStringLiteral("/echo")), &m_network, m_owner.get());
    QPointer<Request> parentless = new vn::GetRequest(requestFor(QStringLiteral("/echo")), &m_network);
    QSignalSpy parentedFinished(parented.data(), &Request::finished);
    QSignalSpy parentlessFinished(parentless.data(), &Request::finished);
    bool parentlessAliveInSlot = false;
    connect(parentless.data(), &Request::finished, this,
            [&] { parentlessAliveInSlot = parentless && parentless->isOk(200); });

    QTRY_COMPARE(parentlessFinished.count(), 1);
    QTRY_COMPARE(parentedFinished.count(), 1);
    QVERIFY(parentlessAliveInSlot);
    QTRY_VERIFY(parentless.isNull());
    QTest::qWait(20);
    QVERIFY(!parented.isNull());
    QVERIFY(parented->isOk(200));
}

void TestRequest::abortFinishesOnce_data()
{
    QTest::addColumn<bool>("started");
    QTest::newRow("before start") << false;
    QTest::newRow("during transfer") << true;
}

void TestRequest::abortFinishesOnce()
{
    QFETCH(bool, started);

    RequestLogCollector log;
    log.clear();
    auto *request = new vn::GetRequest(requestFor(QStringLiteral("/slow")), &m_network, m_owner.get());
    QSignalSpy finished(request, &Request::finished);
    if (started) {
        QTRY_VERIFY(m_slowEntered);
        QVERIFY(request->isRunning());
    }
    request->abort();
    QCOMPARE(finished.count(), 1);
    QVERIFY(request->isFinished());
    QCOMPARE(request->error(), QNetworkReply::OperationCanceledError);
    QCOMPARE(request->responseCode(), 0);

    request->abort();
    m_releaseSlow = true;
    QTest::qWait(50);
    QCOMPARE(finished.count(), 1);
    QCOMPARE(m_slowEntered.load(), started);
    // Asked for by the caller: not a failure worth a warning.
    QVERIFY(log.messages().isEmpty());
}

void TestRequest::logsOneWarningPerFailure_data()
{
    QTest::addColumn<QString>("kind");
    QTest::addColumn<bool>("suppressed");
    QTest::addColumn<QString>("pattern");

    QTest::newRow("HTTP error")
        << "404" << false << R"(^GET http://127\.0\.0\.1:\d+/status/404 failed: status 404, HTTP 404 .*$)";
    QTest::newRow("time-out") << "timeout" << false
                              << R"(^GET http://127\.0\.0\.1:\d+/slow failed: status 0, .*$)";
    QTest::newRow("refused") << "refused" << false
                             << R"(^GET http://127\.0\.0\.1:\d+/ failed: status 0, .+$)";
    QTest::newRow("HTTP error, suppressed") << "404" << true << QString();
    QTest::newRow("time-out, suppressed") << "timeout" << true << QString();
    QTest::newRow("refused, suppressed") << "refused" << true << QString();
}

void TestRequest::logsOneWarningPerFailure()
{
    QFETCH(QString, kind);
    QFETCH(bool, suppressed);
    QFETCH(QString, pattern);

    QUrl url;
    if (kind == QLatin1String("refused")) {
        url = QUrl(QStringLiteral("http://127.0.0.1:%1/").arg(releasedPort()));
    } else {
        url = m_server.url(kind == QLatin1String("timeout") ? QStringLiteral("/slow")
                                                            : QStringLiteral("/status/404"));
    }
    url.setQuery(QStringLiteral("token=query-secret"));
    url.setUserInfo(QStringLiteral("someone:userinfo-secret"));

    RequestLogCollector log;
    log.clear();
    if (!suppressed) {
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(pattern));
    }
    auto *request = new vn::GetRequest(QNetworkRequest(url), &m_network, m_owner.get());
    request->setTimeout(100);
    request->setSuppressErrors(suppressed);
    QSignalSpy finished(request, &Request::finished);
    QVERIFY(finished.wait());
    QVERIFY(!request->isOk(200));

    const QStringList messages = log.messages();
    QCOMPARE(messages.size(), suppressed ? 0 : 1);
    for (const QString &message : messages) {
        QVERIFY(!message.contains(QLatin1String("secret")));
        QVERIFY(!message.contains(QLatin1String("someone")));
        QVERIFY(!message.contains(QLatin1Char('?')));
    }
}

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"

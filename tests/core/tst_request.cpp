// Requests over real HTTP: what each verb sends, redirects hop by hop, failures, limits and abort.
#include "testhttpserver.h"
#include "testlog.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>

#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QPointer>
#include <QSignalSpy>
#include <QSslConfiguration>
#include <QTcpServer>
#include <QTest>

#include <httplib.h>

#include <atomic>
#include <functional>

using vn::Request;
using vn::test::TestHttpServer;
using Make = std::function<Request *(const QNetworkRequest &, QNetworkAccessManager *, QObject *)>;
Q_DECLARE_METATYPE(Make)

namespace {

/// What "vantro.request" logged in the current test.
QStringList logged()
{
    return vn::test::loggedMessages().filter(QRegularExpression("^vantro\\.request: "));
}

/// A factory for the request class @p Verb with the body @p body, for a table column.
template<class Verb, class... Body>
Make maker(Body... body)
{
    return [=](const QNetworkRequest &r, QNetworkAccessManager *n, QObject *p) -> Request * {
        return new Verb(r, n, body..., p);
    };
}

} // namespace

class TestRequest : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase();
    void init()
    {
        m_owner = std::make_unique<QObject>();
        m_server.clearRequests();
        m_other.clearRequests();
        m_entered = false;
        vn::test::loggedMessages().clear();
    }
    void cleanup() { ++m_generation; }

    void exchanges_data()
    {
        QTest::addColumn<Make>("make");
        QTest::addColumn<QByteArray>("type");    // the request's Content-Type
        QTest::addColumn<int>("via");            // a redirect status on the way, or 0
        QTest::addColumn<bool>("otherOrigin");   // of the redirect's target
        QTest::addColumn<QByteArray>("arrives"); // the method the target sees
        QTest::addColumn<QByteArray>("sent");    // and the body
        const auto row = [](const char *name, const Make &make, const QByteArray &type,
                            const QByteArray &arrives, const QByteArray &sent, int via = 0,
                            bool otherOrigin = false) {
            QTest::newRow(name) << make << type << via << otherOrigin << arrives << sent;
        };
        // Indented and out of order on purpose: what goes out is the compact form.
        const QJsonObject object = QJsonDocument::fromJson(R"({ "b": [1, 2], "a": "x y" })").object();
        const QByteArray compact = R"({"a":"x y","b":[1,2]})";
        const QByteArray json = "application/json", form = "a=1&b=2",
                         formType = "application/x-www-form-urlencoded";
        const Make postObject = maker<vn::PostRequest>(object);
        row("GET", maker<vn::GetRequest>(), {}, "GET", {});
        row("DELETE", maker<vn::DeleteRequest>(), {}, "DELETE", {});
        row("POST object", postObject, json, "POST", compact);
        row("POST bytes", maker<vn::PostRequest>(form), formType, "POST", form);
        row("PUT object", maker<vn::PutRequest>(object), json, "PUT", compact);
        row("PUT bytes", maker<vn::PutRequest>(form), formType, "PUT", form);
        row("PATCH object", maker<vn::PatchRequest>(object), json, "PATCH", compact);
        row("PATCH bytes", maker<vn::PatchRequest>(form), formType, "PATCH", form);
        row("PATCH array", maker<vn::PatchRequest>(QJsonArray{1, 2}), json, "PATCH", "[1,2]");
        row("301 turns POST into GET", postObject, json, "GET", {}, 301);
        row("307 keeps POST and body", postObject, json, "POST", compact, 307);
        row("308 keeps POST and body", postObject, json, "POST", compact, 308);
        row("303 to another origin", postObject, json, "GET", {}, 303, true);
    }

    void exchanges()
    {
        QFETCH(Make, make);
        QFETCH(QByteArray, type);
        QFETCH(int, via);
        QFETCH(bool, otherOrigin);
        QFETCH(QByteArray, arrives);
        QFETCH(QByteArray, sent);
        TestHttpServer &target = otherOrigin ? m_other : m_server;
        const QUrl echo = target.url(QStringLiteral("/echo"));
        const QString hop = QStringLiteral("/hop?code=%1&to=%2").arg(via).arg(echo.toString());
        QNetworkRequest networkRequest(via ? m_server.url().resolved(QUrl(hop)) : echo);
        networkRequest.setHeader(QNetworkRequest::ContentTypeHeader, type.isEmpty() ? QVariant() : type);
        networkRequest.setRawHeader("Authorization", "Bearer set-by-caller");
        networkRequest.setRawHeader("Cookie", "session=set-by-caller");
        Request *request = make(networkRequest, &m_network, m_owner.get());
        QVERIFY(!request->isRunning()); // nothing goes out before the caller can connect finished()
        QSignalSpy finished(request, &Request::finished);
        QVERIFY(finished.wait(10000));
        QVERIFY(request->isOk(200));
        QCOMPARE(request->responseObject().value(QLatin1String("method")).toString().toUtf8(), arrives);
        QCOMPARE(request->responseHeader("CONTENT-TYPE"), QByteArray("application/json"));

        QCOMPARE(m_server.requests().value(0).method, request->method());
        QCOMPARE(m_server.requestCount() + m_other.requestCount(), via ? 2 : 1);
        const auto received = target.lastRequest();
        QCOMPARE(received.body, sent);
        QCOMPARE(received.headers.value("content-type"), sent.isEmpty() ? QByteArray() : type);
        // What the caller wrote for one origin does not travel to another.
        QCOMPARE(received.headers.contains("authorization"), !otherOrigin);
        QCOMPARE(received.headers.contains("cookie"), !otherOrigin);
    }

    void outcomes_data()
    {
        QTest::addColumn<Make>("make");
        QTest::addColumn<QString>("path"); // relative to m_server
        QTest::addColumn<qint64>("limit");
        QTest::addColumn<int>("code");
        QTest::addColumn<QNetworkReply::NetworkError>("error");
        QTest::addColumn<int>("hits"); // requests that reach m_server
        const auto row = [](const char *name, const QString &url, int code, QNetworkReply::NetworkError error,
                            int hits = 1, qint64 limit = Request::DefaultMaximumResponseSize,
                            const Make &make = maker<vn::GetRequest>()) {
            QTest::newRow(name) << make << url << limit << code << error << hits;
        };
        const auto tooLarge = QNetworkReply::UnknownContentError;
        QTcpServer probe; // a port that nobody listens on once it is closed
        const QString refused =
            QStringLiteral("http://127.0.0.1:%1/").arg(probe.listen() ? probe.serverPort() : 0);
        probe.close();
        row("404", "/echo?status=404", 404, QNetworkReply::ContentNotFoundError);
        row("500", "/echo?status=500", 500, QNetworkReply::InternalServerError);
        row("time-out", "/stall", 0, QNetworkReply::TimeoutError);
        row("refused", refused, 0, QNetworkReply::ConnectionRefusedError, 0);
        row("redirect loop", "/hop", 0, QNetworkReply::TooManyRedirectsError, 11);
        row("https to http",
            m_secure.url(QStringLiteral("/hop")).toString() + "?to=" + m_server.url().toString(), 0,
            QNetworkReply::InsecureRedirectError, 0);
        // A body written for one origin (a password, say) is not handed to another.
        const Make postPassword = maker<vn::PostRequest>(QJsonObject{{"password", "secret"}});
        const QString other = m_other.url(QStringLiteral("/echo")).toString();
        row("307 with a body to another origin", "/hop?code=307&to=" + other, 0,
            QNetworkReply::InsecureRedirectError, 1, Request::DefaultMaximumResponseSize, postPassword);
        row("308 with a body to another origin", "/hop?code=308&to=" + other, 0,
            QNetworkReply::InsecureRedirectError, 1, Request::DefaultMaximumResponseSize, postPassword);
        row("announced, nothing sent yet", "/stall", 0, tooLarge, 1, 1024);
        row("announced, at the limit", "/big", 200, QNetworkReply::NoError, 1, 4096);
        row("chunked, over the limit", "/big/chunked", 0, tooLarge, 1, 4095);
        row("chunked, at the limit", "/big/chunked", 200, QNetworkReply::NoError, 1, 4096);
    }

    void outcomes()
    {
        QFETCH(Make, make);
        QFETCH(QString, path);
        QFETCH(qint64, limit);
        QFETCH(int, code);
        QFETCH(QNetworkReply::NetworkError, error);
        QFETCH(int, hits);
        QUrl url = m_server.url().resolved(QUrl(path));
        const QRegularExpression warning(
            QStringLiteral("^[A-Z]+ %1( \\(redirected to .+\\))? failed: status \\d+, .+$")
                .arg(QRegularExpression::escape(url.adjusted(QUrl::RemoveQuery).toString())));
        url.setQuery(url.query() + QStringLiteral("&token=query-secret")); // neither may reach the log
        url.setUserInfo(QStringLiteral("someone:userinfo-secret"));
        QNetworkRequest networkRequest(url);
        networkRequest.setSslConfiguration(m_tls);
        for (const bool suppressed : {false, true}) {
            m_server.clearRequests();
            vn::test::loggedMessages().clear();
            const bool warns = code != 200 && !suppressed;
            if (warns) {
                QTest::ignoreMessage(QtWarningMsg, warning);
            }
            Request *request = make(networkRequest, &m_network, m_owner.get());
            request->setMaximumResponseSize(limit);
            request->setTimeout(1000);
            request->setSuppressErrors(suppressed);
            QSignalSpy finished(request, &Request::finished);
            QVERIFY(finished.wait(10000));
            QCOMPARE(request->responseCode(), code);
            QCOMPARE(request->error(), error);
            // An HTTP error status is still an exchange that went through; nothing else is.
            QCOMPARE(request->isOk(code), code != 0);
            QCOMPARE(request->isOk(200), code == 200);
            QCOMPARE(request->rawResponse().isEmpty(), code == 0);
            QCOMPARE(m_server.requestCount(), hits);
            QCOMPARE(m_other.requestCount(), 0);
            QCOMPARE(logged().size(), warns ? 1 : 0);
            QVERIFY(!logged().join(QLatin1Char('\n')).contains(QLatin1String("secret")));
        }
    }

    void abortAndOwnership_data()
    {
        QTest::addColumn<bool>("running"); // or still queued
        QTest::addColumn<bool>("parented");
        QTest::newRow("queued, without parent") << false << false;
        QTest::newRow("running, with parent") << true << true;
    }

    void abortAndOwnership()
    {
        QFETCH(bool, running);
        QFETCH(bool, parented);
        QPointer<Request> request =
            new vn::GetRequest(QNetworkRequest(m_server.url(QStringLiteral("/stall"))), &m_network,
                               parented ? m_owner.get() : nullptr);
        QSignalSpy finished(request.data(), &Request::finished);
        QTRY_VERIFY(!running || m_entered);
        request->abort();
        request->abort();
        QCOMPARE(finished.count(), 1);
        QVERIFY(request); // a parentless request goes only once finished() has been delivered
        QCOMPARE(request->error(), QNetworkReply::OperationCanceledError);
        QTRY_COMPARE(request.isNull(), !parented);
        QCOMPARE(m_entered.load(), running); // a queued request never goes out
        QVERIFY(logged().isEmpty());         // asked for: no warning
    }

private:
    TestHttpServer m_server;
    TestHttpServer m_other; // another origin: same host, other port
    TestHttpServer m_secure{QStringLiteral("127.0.0.1"), TestHttpServer::testCertificateFile(),
                            TestHttpServer::testPrivateKeyFile()};
    QSslConfiguration m_tls = QSslConfiguration::defaultConfiguration();
    QNetworkAccessManager m_network;
    std::unique_ptr<QObject> m_owner;
    std::atomic<int> m_generation{0}; // a stalled answer waits until the test that asked for it ends
    std::atomic<bool> m_entered{false};
};

void TestRequest::initTestCase()
{
    QVERIFY(m_server.isListening() && m_other.isListening() && m_secure.isListening());
    vn::test::collectLogMessages();
    m_tls.setCaCertificates(QSslCertificate::fromPath(TestHttpServer::testCertificateFile()));
    const auto echo = [](const httplib::Request &request, httplib::Response &response) {
        response.status = request.has_param("status") ? std::stoi(request.get_param_value("status")) : 200;
        response.set_content("{\"method\":\"" + request.method + "\"}", "application/json");
    };
    // Redirects to "to" with "code" (302 by default); without "to", to itself.
    const auto hop = [](const httplib::Request &request, httplib::Response &response) {
        const int code = request.has_param("code") ? std::stoi(request.get_param_value("code")) : 302;
        response.set_redirect(request.has_param("to") ? request.get_param_value("to") : request.target, code);
    };
    for (TestHttpServer *server : {&m_server, &m_other, &m_secure}) {
        server->server().Get("/echo", echo).Post("/echo", echo).Put("/echo", echo).Patch("/echo", echo);
        server->server().Delete("/echo", echo).Get("/hop", hop).Post("/hop", hop);
    }
    // Announces 1 MiB, then sends nothing: only a time-out or the announced length can stop it.
    m_server.server().Get("/stall", [this](const httplib::Request &, httplib::Response &response) {
        response.set_content_provider(1 << 20, "text/plain", [this](size_t, size_t, httplib::DataSink &) {
            const int generation = m_generation;
            m_entered = true;
            for (int i = 0; i < 2000 && generation == m_generation; ++i) {
                std::this_thread::sleep_for(std::chrono::milliseconds(5));
            }
            return false;
        });
    });
    // 4096 bytes, announced or chunked; not a text type, which the server would compress.
    const std::string big(4096, 'x');
    m_server.server().Get("/big", [big](const auto &, httplib::Response &response) {
        response.set_content(big, "application/octet-stream");
    });
    m_server.server().Get("/big/chunked", [big](const auto &, httplib::Response &response) {
        response.set_chunked_content_provider(
            "application/octet-stream", [big](size_t, httplib::DataSink &sink) {
                return sink.write(big.data(), big.size()) && (sink.done(), true);
            });
    });
}

QTEST_GUILESS_MAIN(TestRequest)
#include "tst_request.moc"

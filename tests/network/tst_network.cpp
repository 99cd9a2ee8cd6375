// The network library: which registered authorization a URL gets, the handles that own them, and
// the manager that writes them into requests over real HTTP on loopback.
#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/basicauthorization.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>
#include <VantroNetwork/oauth1authorization.h>

#include <Vantro/getrequest.h>

#include "oauth1signature_p.h"
#include "testhttpserver.h"
#include "testlog.h"

#include <QNetworkReply>
#include <QProcess>
#include <QScopeGuard>
#include <QtTest>

#include <httplib.h>

#include <future>

using namespace vn::network;
using vn::test::TestHttpServer;

namespace {

// Every secret here says so: no log line may contain the word.
const QString ConsumerKey = QStringLiteral("consumer key");
const QString ConsumerSecret = QStringLiteral("c0nsumer&secret+/=");
const QString Token = QStringLiteral("t0ken");
const QString TokenSecret = QStringLiteral("t0ken secret%ü");

AuthorizationHandle registered(Authorization *authorization)
{
    return AuthorizationHandle(AuthorizationRegistry::instance()->add(authorization));
}

AuthorizationHandle bearer(const QString &host, const QByteArray &token)
{
    return registered(new BearerAuthorization({host}, token));
}

/// Sends @p verb through the shared manager the way that verb is sent, and returns the status (and
/// the response body in @p answer).
int send(const QNetworkRequest &request, const QByteArray &verb = "GET", const QByteArray &body = {},
         QByteArray *answer = nullptr)
{
    NetworkAccessManager *manager = NetworkAccessManager::sharedInstance();
    const std::unique_ptr<QNetworkReply> reply(verb == "GET"    ? manager->get(request)
                                               : verb == "POST" ? manager->post(request, body)
                                               : verb == "PUT"  ? manager->put(request, body)
                                               : verb == "DELETE"
                                                   ? manager->deleteResource(request)
                                                   : manager->sendCustomRequest(request, verb, body));
    QSignalSpy(reply.get(), &QNetworkReply::finished).wait(10000);
    if (answer) {
        *answer = reply->readAll();
    }
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

} // namespace

class TestNetwork : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_first.isListening() && m_second.isListening());
        vn::test::collectLogMessages();
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.*=true"));
        const std::string second = m_second.url().toString().toStdString();
        m_first.server().Get("/redirect", [second](const httplib::Request &, httplib::Response &response) {
            response.set_redirect(second);
        });
        const auto ok = [](const httplib::Request &, httplib::Response &response) {
            response.set_content("ok", "text/plain");
        };
        for (TestHttpServer *server : {&m_first, &m_second}) {
            server->server().Get(".*", ok).Post(".*", ok).Put(".*", ok).Patch(".*", ok).Delete(".*", ok);
        }

        m_verifier.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_verifier.start(QStringLiteral(VANTRO_SYSTEM_PYTHON),
                         {QStringLiteral(OAUTH1_VERIFIER), ConsumerKey, ConsumerSecret, Token, TokenSecret});
        QVERIFY2(m_verifier.waitForReadyRead(10000), "the OAuth 1 verifier (python3-oauthlib) did not start");
        m_verifierUrl.setUrl(
            QStringLiteral("http://127.0.0.1:%1").arg(m_verifier.readLine().trimmed().toInt()));
    }

    void cleanup()
    {
        m_first.clearRequests();
        m_second.clearRequests();
        QCOMPARE(AuthorizationRegistry::instance()->count(), 0);
        QVERIFY2(!vn::test::loggedMessages().join(QLatin1Char('\n')).contains(QLatin1String("secret")),
                 "a secret reached a log line");
    }

    void cleanupTestCase()
    {
        QVERIFY(!vn::test::loggedMessages().isEmpty()); // or the check in cleanup() proved nothing
        // Open keep-alive connections would hold the servers' threads until their idle time-out.
        NetworkAccessManager::sharedInstance()->clearConnectionCache();
        m_verifier.kill();
        m_verifier.waitForFinished();
    }

    void decision_data()
    {
        QTest::addColumn<QString>("hosts"); // of the older authorization, comma-separated
        QTest::addColumn<QString>("newer"); // hosts of a newer one, if any
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("winner");  // whose token is written, if any
        QTest::addColumn<QVariant>("origin"); // Authorization::originHost(url), where the row says

        const auto row = [](const char *name, const char *hosts, const char *url, const char *winner,
                            const char *newer = "", const char *origin = nullptr) {
            QTest::newRow(name) << hosts << newer << url << winner
                                << (origin ? QVariant(QString::fromUtf8(origin)) : QVariant());
        };
        row("https, exact host, any port", "example.com", "https://example.com:8443/x", "older", "",
            "example.com:8443");
        row("second of two hosts", "a.test,b.test", "https://b.test/", "older");
        row("subdomain", "example.com", "https://api.example.com/", "");
        row("parent domain", "api.example.com", "https://example.com/", "");
        row("name followed by another domain", "example.com", "https://example.com.attacker.test/", "");
        row("http to a remote host", "example.com", "http://example.com/", "");
        row("account origin", "127.0.0.1:8421", "http://127.0.0.1:8421/api", "older", "", "127.0.0.1:8421");
        row("http to 127.255.255.254", "127.255.255.254", "http://127.255.255.254/", "older");
        row("http to ::1, any port", "::1", "http://[::1]:8080/", "older");
        row("[::1] with its port", "[::1]:8080", "http://[::1]:8080/", "older", "", "[::1]:8080");
        row("[::1] on another port", "[::1]:8080", "http://[::1]:8081/", "");
        row("https implies 443", "example.com:443", "https://example.com/", "older", "", "example.com:443");
        row("http implies 80", "localhost:80", "http://LocalHost/x", "older", "", "localhost:80");
        row("80 is not https's port", "example.com:80", "https://example.com/", "");
        row("malformed port", "example.com:https", "https://example.com/", "");
        row("http to a name starting with localhost", "localhost.example.com",
            "http://localhost.example.com/", "");
        row("websocket to loopback", "127.0.0.1", "ws://127.0.0.1/", "", "", "");
        row("empty host, https without host", "", "https:///x", "", "", "");
        row("newest wins", "example.com", "https://example.com/", "newer", "EXAMPLE.com");
        row("older where the newer does not match", "example.com", "https://example.com/", "older",
            "other.test");
        row("newer for another port of the host", "127.0.0.1:8421", "http://127.0.0.1:8421/", "older",
            "127.0.0.1:9000");
    }

    void decision()
    {
        QFETCH(QString, hosts);
        QFETCH(QString, newer);
        QFETCH(QString, url);
        QFETCH(QString, winner);
        QFETCH(QVariant, origin);

        if (origin.isValid()) {
            QCOMPARE(Authorization::originHost(QUrl(url)), origin.toString());
        }
        AuthorizationRegistry registry;
        registry.add(new BearerAuthorization(hosts.split(QLatin1Char(',')), "older"));
        if (!newer.isEmpty()) {
            registry.add(new BearerAuthorization(newer.split(QLatin1Char(',')), "newer"));
        }
        QNetworkRequest request{QUrl(url)};
        QCOMPARE(registry.hasAuthorization(request.url()), !winner.isEmpty());
        QCOMPARE(registry.authorize(request, "GET", QByteArray()), !winner.isEmpty());
        QCOMPARE(request.rawHeader("Authorization"),
                 winner.isEmpty() ? QByteArray() : "Bearer " + winner.toUtf8());
    }

    void handles()
    {
        auto registry = std::make_shared<AuthorizationRegistry>();
        const auto handle = [&registry](const QByteArray &token) {
            return AuthorizationHandle(registry->add(new BearerAuthorization({"example.com"}, token)),
                                       HandleDeleter(registry));
        };
        AuthorizationHandle first = handle("first");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("already registered")));
        registry->add(first.get()); // held once all the same, or it would be deleted twice
        handle("second").reset();
        QCOMPARE(registry->count(), 1);
        QNetworkRequest request(QUrl(QStringLiteral("https://example.com/")));
        QVERIFY(registry->authorize(request, "GET", QByteArray()));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer first"));

        {
            // Taken back, it belongs to whoever took it: the handle must not delete it as well.
            AuthorizationHandle third = handle("third");
            const std::unique_ptr<Authorization> takenBack = registry->remove(third.get());
            QCOMPARE(takenBack.get(), third.get());
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("was not registered")));
            third.reset();
        }

        // A handle keeps its registry alive after everyone else has let go of it.
        const std::weak_ptr<AuthorizationRegistry> watcher = registry;
        registry.reset();
        QCOMPARE(watcher.lock()->count(), 1);
        first = AuthorizationHandle();
        QVERIFY(watcher.expired());
    }

    void credentialByOrigin_data()
    {
        QTest::addColumn<bool>("basic"); // else a bearer token, both registered for 127.0.0.1
        QTest::addColumn<QByteArray>("callerHeader");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray own = "Basic b3duOm93bg==";
        QTest::newRow("bearer") << false << QByteArray() << QByteArray("Bearer secret-1");
        QTest::newRow("basic, UTF-8")
            << true << QByteArray() << QByteArray("Basic SsO8cmdlbjpww6Q6c3M6d8O2cnQtc2VjcmV0");
        QTest::newRow("caller's own header stays") << false << own << own;
    }

    void credentialByOrigin()
    {
        QFETCH(bool, basic);
        QFETCH(QByteArray, callerHeader);
        QFETCH(QByteArray, expected);
        const QStringList hosts{m_first.host()};
        AuthorizationHandle handle =
            registered(basic ? static_cast<Authorization *>(new BasicAuthorization(
                                   hosts, QStringLiteral("Jürgen"), QStringLiteral("pä:ss:wört-secret")))
                             : new BearerAuthorization(hosts, "secret-1"));
        QNetworkRequest request(m_first.url());
        request.setRawHeader("Authorization", callerHeader); // a null value sets nothing
        QCOMPARE(send(request), 200);
        QCOMPARE(m_first.lastRequest().headers.value("authorization"), expected);
        handle.reset(); // withdraws it
        QCOMPARE(send(request), 200);
        QCOMPARE(m_first.lastRequest().headers.value("authorization"), callerHeader);
    }

    void redirects()
    {
        const AuthorizationHandle first = bearer(m_first.host(), "first-secret");
        QNetworkRequest request(m_first.url(QStringLiteral("/redirect")));
        // Qt would send this very request, credential and all, to wherever Location points.
        QNetworkRequest followedByQt(request);
        followedByQt.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                                  QNetworkRequest::NoLessSafeRedirectPolicy);
        QCOMPARE(send(followedByQt), 302);
        QCOMPARE(m_first.lastRequest().headers.value("authorization"), QByteArray("Bearer first-secret"));
        QCOMPARE(m_second.requestCount(), 0);
        // vn::Request sends each hop as a request of its own, which gets the decision for its own origin.
        for (const bool secondRegistered : {false, true}) {
            const AuthorizationHandle second =
                secondRegistered ? bearer(m_second.host(), "second-secret") : nullptr;
            QObject owner;
            auto *followed = new vn::GetRequest(request, NetworkAccessManager::sharedInstance(), &owner);
            QSignalSpy finished(followed, &vn::Request::finished);
            QVERIFY(finished.wait(10000) && followed->isOk(200));
            QCOMPARE(m_second.lastRequest().headers.value("authorization"),
                     secondRegistered ? QByteArray("Bearer second-secret") : QByteArray());
        }
    }

    // The signature of RFC 5849's example (section 1.2), with its capitals and default port.
    void oauth1Example()
    {
        const OAuth1Signature result = signOAuth1Request(
            "get",
            QUrl(QStringLiteral("http://Photos.Example.NET:80/photos?file=vacation.jpg&size=original")), {},
            {{"oauth_consumer_key", "dpf43f3p2l4k3l03"},
             {"oauth_token", "nnch734d00sl2jdk"},
             {"oauth_signature_method", "HMAC-SHA1"},
             {"oauth_timestamp", "137131202"},
             {"oauth_nonce", "chapoH"}},
            QStringLiteral("kd94hf93k423kf44"), QStringLiteral("pfkkdhi9sl3r4s00"));
        QCOMPARE(result.signature, QByteArray("MdpQcU8iPSUjWoN/UDMsK2sui9I="));
    }

    // Signed through the manager and checked by oauthlib, which rebuilds the base string from what
    // reaches it on the wire.
    void oauth1_data()
    {
        QTest::addColumn<QByteArray>("verb");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("body");
        const auto row = [](const char *name, const QByteArray &verb, const char *path,
                            const QByteArray &type = {}, const QByteArray &body = {}) {
            QTest::newRow(name) << verb << QString::fromUtf8(path) << type << body;
        };
        const QByteArray form = "application/x-www-form-urlencoded";
        row("GET with query", "GET", "/r?b=2&a=1&text=hello+world&escaped=%2B%26%3D%25&u=%C3%A9&flag&a=0");
        row("escaped path", "GET", "/a%20b/c%2Fd/%C3%A9t%C3%A9;v=1?q=x%20y&empty=&q=x+y");
        row("path and query as typed", "GET", "/x y/ü€/~?k=ü v&k=+");
        row("dot segments", "GET", "/a/./b/../c%2E/");
        row("POST form body", "POST", "/r?z=last", form, "name=J%C3%BCrgen+M&z=first&empty=&z=%2F");
        row("POST JSON body, unsigned", "POST", "/r", "application/json", "{\"a\":\"b=c\"}");
        row("PUT form body", "PUT", "/r", form, "k=v");
        row("PATCH form body", "PATCH", "/r", form, "k=v+w");
        row("DELETE", "DELETE", "/r?id=7");
    }

    void oauth1()
    {
        QFETCH(QByteArray, verb);
        QFETCH(QString, path);
        QFETCH(QByteArray, type);
        QFETCH(QByteArray, body);
        QNetworkRequest request(QUrl(m_verifierUrl.toString() + path));
        request.setHeader(QNetworkRequest::ContentTypeHeader, type.isEmpty() ? QVariant() : type);
        const QString origin = Authorization::originHost(request.url());
        QByteArrayList nonces;
        for (const QString &tokenSecret : {TokenSecret, TokenSecret, QStringLiteral("other")}) {
            const AuthorizationHandle handle = registered(
                new OAuth1Authorization({origin}, ConsumerKey, ConsumerSecret, Token, tokenSecret));
            QByteArray answer;
            const int status = send(request, verb, body, &answer);
            QVERIFY2(status == (tokenSecret == TokenSecret ? 200 : 401), answer.constData());
            nonces.append(answer);
        }
        QVERIFY(nonces.at(0) != nonces.at(1)); // fresh for each request
        QVERIFY(nonces.at(2).startsWith("signature mismatch"));
    }

    void concurrentRegistration()
    {
        const AuthorizationHandle steady = bearer(m_first.host(), "steady");
        std::atomic<bool> stop{false};
        std::vector<std::future<void>> churners; // each waits for its thread when it goes
        for (int t = 0; t < 4; ++t) {
            churners.push_back(std::async(std::launch::async, [this, &stop] {
                for (int i = 0; !stop; ++i) {
                    AuthorizationHandle handle = bearer(m_first.host(), "churn");
                    if (i % 2) {
                        AuthorizationRegistry::instance()->remove(handle.release());
                    }
                }
            }));
        }
        const auto stopOnAnyWayOut = qScopeGuard([&stop] { stop = true; });
        std::vector<std::unique_ptr<QNetworkReply>> replies;
        for (int i = 0; i < 40; ++i) {
            replies.emplace_back(NetworkAccessManager::sharedInstance()->get(QNetworkRequest(m_first.url())));
        }
        for (const auto &reply : replies) {
            QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
        }
        stop = true;
        churners.clear();
        QCOMPARE(AuthorizationRegistry::instance()->count(), 1);
        QCOMPARE(m_first.requestCount(), 40);
        for (const auto &received : m_first.requests()) {
            const QByteArray header = received.headers.value("authorization");
            QVERIFY2(header == "Bearer steady" || header == "Bearer churn", "a torn or missing header");
        }
    }

private:
    TestHttpServer m_first{QStringLiteral("127.0.0.1")};
    TestHttpServer m_second{QStringLiteral("127.0.0.2")};
    QProcess m_verifier;
    QUrl m_verifierUrl;
};

QTEST_GUILESS_MAIN(TestNetwork)
#include "tst_network.moc"

#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/basicauthorization.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>
#include <VantroNetwork/oauth1authorization.h>

#include <Vantro/getrequest.h>

#include "oauth1signature_p.h"
#include "testhttpserver.h"

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

QStringList g_logged; // every message, debug included
QtMessageHandler g_previous = nullptr;

void collect(QtMsgType type, const QMessageLogContext &context, const QString &message)
{
    g_logged.append(message);
    if (type != QtDebugMsg) {
        g_previous(type, context, message); // QTest::ignoreMessage sees it there
    }
}

AuthorizationHandle registered(Authorization *authorization)
{
    const auto registry = AuthorizationRegistry::instance();
    return AuthorizationHandle(registry->add(authorization), HandleDeleter(registry));
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

class TestNetworkAccessManager : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_first.isListening() && m_second.isListening());
        g_previous = qInstallMessageHandler(collect);
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

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(QStringLiteral("OAUTH_CONSUMER_KEY"), ConsumerKey);
        environment.insert(QStringLiteral("OAUTH_CONSUMER_SECRET"), ConsumerSecret);
        environment.insert(QStringLiteral("OAUTH_TOKEN"), Token);
        environment.insert(QStringLiteral("OAUTH_TOKEN_SECRET"), TokenSecret);
        m_verifier.setProcessEnvironment(environment);
        m_verifier.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        m_verifier.start(QStringLiteral(VANTRO_SYSTEM_PYTHON), {QStringLiteral(OAUTH1_VERIFIER)});
        QVERIFY2(m_verifier.waitForReadyRead(10000), "the OAuth 1 verifier (python3-oauthlib) did not start");
        m_verifierUrl.setUrl(
            QStringLiteral("http://127.0.0.1:%1").arg(m_verifier.readLine().trimmed().toInt()));
    }

    void cleanup()
    {
        m_first.clearRequests();
        m_second.clearRequests();
        QCOMPARE(AuthorizationRegistry::instance()->count(), 0);
        QVERIFY2(!g_logged.join(QLatin1Char('\n')).contains(QLatin1String("secret")),
                 "a secret reached a log line");
    }

    void cleanupTestCase()
    {
        QVERIFY(!g_logged.isEmpty()); // or the check in cleanup() proved nothing
        // Open keep-alive connections would hold the servers' threads until their idle time-out.
        NetworkAccessManager::sharedInstance()->clearConnectionCache();
        m_verifier.kill();
        m_verifier.waitForFinished();
    }

    void credentialByOrigin_data()
    {
        QTest::addColumn<bool>("toSecond"); // 127.0.0.2; the bearer is for 127.0.0.1
        QTest::addColumn<QByteArray>("callerHeader");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray own = "Basic b3duOm93bg==";
        QTest::newRow("registered host") << false << QByteArray() << QByteArray("Bearer secret-1");
        QTest::newRow("other loopback host") << true << QByteArray() << QByteArray();
        QTest::newRow("caller's own header stays") << false << own << own;
    }

    void credentialByOrigin()
    {
        QFETCH(bool, toSecond);
        QFETCH(QByteArray, callerHeader);
        QFETCH(QByteArray, expected);
        AuthorizationHandle handle = bearer(m_first.host(), "secret-1");
        const TestHttpServer &target = toSecond ? m_second : m_first;
        QNetworkRequest request(target.url());
        request.setRawHeader("Authorization", callerHeader); // a null value sets nothing
        QCOMPARE(send(request), 200);
        QCOMPARE(target.lastRequest().headers.value("authorization"), expected);

        handle.reset(); // withdraws it
        QCOMPARE(send(request), 200);
        QCOMPARE(target.lastRequest().headers.value("authorization"), callerHeader);
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
            QVERIFY(finished.wait(10000));
            QVERIFY(followed->isOk(200));
            QCOMPARE(m_second.lastRequest().headers.value("authorization"),
                     secondRegistered ? QByteArray("Bearer second-secret") : QByteArray());
        }
    }

    void basic()
    {
        const QString user = QStringLiteral("Jürgen");
        const QString password = QStringLiteral("pä:ss:wört-secret");
        const AuthorizationHandle handle =
            registered(new BasicAuthorization({m_first.host()}, user, password));
        QCOMPARE(send(QNetworkRequest(m_first.url())), 200);
        const QByteArray header = m_first.lastRequest().headers.value("authorization");
        QCOMPARE(header.left(6), QByteArray("Basic "));
        QCOMPARE(QString::fromUtf8(QByteArray::fromBase64(header.mid(6))),
                 user + QLatin1Char(':') + password);
    }

    // The examples of RFC 5849 (sections 3.4.1.1 and 1.2), in their own words and secrets.
    void oauth1Examples_data()
    {
        QTest::addColumn<QByteArray>("verb");
        QTest::addColumn<QString>("url");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("oauth"); // name=value, separated by spaces
        QTest::addColumn<QByteArray>("baseString");
        QTest::addColumn<QByteArray>("signature"); // empty where the example gives none
        QTest::newRow("query, form body and protocol parameters")
            << QByteArray("POST") << "http://example.com/request?b5=%3D%253D&a3=a&c%40=&a2=r%20b"
            << QByteArray("c2&a3=2+q")
            << "oauth_consumer_key=9djdj82h48djs9d2 oauth_token=kkk9d7dh3k39sjv7 "
               "oauth_signature_method=HMAC-SHA1 "
               "oauth_timestamp=137131201 oauth_nonce=7d8f3e4a oauth_signature=bYT5CMsGcbgUdFHObYMEfcx6bsw="
            << QByteArray(
                   "POST&http%3A%2F%2Fexample.com%2Frequest&a2%3Dr%2520b%26a3%3D2%2520q%26a3%3Da%26b5%3D%"
                   "253D%25253D%26c%2540%3D%26c2%3D%26oauth_consumer_key%3D9djdj82h48djs9d2%26oauth_"
                   "nonce%3D7d8f3e4a%26oauth_signature_method%3DHMAC-SHA1%26oauth_timestamp%3D137131201%"
                   "26oauth_token%3Dkkk9d7dh3k39sjv7")
            << QByteArray();
        QTest::newRow("protected resource, default port and capitals")
            << QByteArray("get") << "http://Photos.Example.NET:80/photos?file=vacation.jpg&size=original"
            << QByteArray()
            << "oauth_consumer_key=dpf43f3p2l4k3l03 oauth_token=nnch734d00sl2jdk "
               "oauth_signature_method=HMAC-SHA1 "
               "oauth_timestamp=137131202 oauth_nonce=chapoH"
            << QByteArray(
                   "GET&http%3A%2F%2Fphotos.example.net%2Fphotos&file%3Dvacation.jpg%26oauth_consumer_"
                   "key%3Ddpf43f3p2l4k3l03%26oauth_nonce%3DchapoH%26oauth_signature_method%3DHMAC-SHA1%"
                   "26oauth_timestamp%3D137131202%26oauth_token%3Dnnch734d00sl2jdk%26size%3Doriginal")
            << QByteArray("MdpQcU8iPSUjWoN/UDMsK2sui9I=");
    }

    void oauth1Examples()
    {
        QFETCH(QByteArray, verb);
        QFETCH(QString, url);
        QFETCH(QByteArray, body);
        QFETCH(QString, oauth);
        QFETCH(QByteArray, baseString);
        QFETCH(QByteArray, signature);
        QVector<QPair<QString, QString>> parameters;
        for (const QString &parameter : oauth.split(QLatin1Char(' '))) {
            const int equals = parameter.indexOf(QLatin1Char('='));
            parameters.append({parameter.left(equals), parameter.mid(equals + 1)});
        }
        const OAuth1Signature result =
            signOAuth1Request(verb, QUrl(url), body, parameters, QStringLiteral("kd94hf93k423kf44"),
                              QStringLiteral("pfkkdhi9sl3r4s00"));
        QCOMPARE(result.baseString, baseString);
        if (!signature.isEmpty()) {
            QCOMPARE(result.signature, signature);
        }
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
        const auto registry = AuthorizationRegistry::instance();
        const AuthorizationHandle steady = bearer(m_first.host(), "steady");
        std::atomic<bool> stop{false};
        std::vector<std::future<int>> churners; // each waits for its thread when it goes
        for (int t = 0; t < 4; ++t) {
            churners.push_back(std::async(std::launch::async, [&, t] {
                int i = 0;
                for (; !stop; ++i) {
                    AuthorizationHandle handle = bearer(m_first.host(), "churn-" + QByteArray::number(t));
                    if (i % 2) {
                        registry->remove(handle.release());
                    }
                }
                return i;
            }));
        }
        const auto stopOnAnyWayOut = qScopeGuard([&stop] { stop = true; });
        for (int batch = 0; batch < 5; ++batch) {
            std::vector<std::unique_ptr<QNetworkReply>> replies;
            for (int i = 0; i < 8; ++i) {
                replies.emplace_back(
                    NetworkAccessManager::sharedInstance()->get(QNetworkRequest(m_first.url())));
            }
            for (const auto &reply : replies) {
                QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
                QCOMPARE(reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), 200);
            }
        }
        stop = true;
        for (auto &churner : churners) {
            QVERIFY(churner.get() > 0);
        }
        QCOMPARE(registry->count(), 1);
        for (const auto &received : m_first.requests()) {
            const QByteArray header = received.headers.value("authorization");
            QVERIFY2(header == "Bearer steady" || header.startsWith("Bearer churn-"),
                     "a torn or missing header");
        }
    }

private:
    TestHttpServer m_first{QStringLiteral("127.0.0.1")};
    TestHttpServer m_second{QStringLiteral("127.0.0.2")};
    QProcess m_verifier;
    QUrl m_verifierUrl;
};

QTEST_GUILESS_MAIN(TestNetworkAccessManager)
#include "tst_networkaccessmanager.moc"

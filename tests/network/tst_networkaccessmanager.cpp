#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/basicauthorization.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>
#include <VantroNetwork/oauth1authorization.h>

#include <Vantro/getrequest.h>

#include "testhttpserver.h"

#include <QMessageAuthenticationCode>
#include <QNetworkReply>
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

/// Sends @p verb through the shared manager the way that verb is sent, and returns the status.
int send(const QNetworkRequest &request, const QByteArray &verb = "GET", const QByteArray &body = {})
{
    NetworkAccessManager *manager = NetworkAccessManager::sharedInstance();
    const std::unique_ptr<QNetworkReply> reply(verb == "GET"    ? manager->get(request)
                                               : verb == "POST" ? manager->post(request, body)
                                               : verb == "PUT"  ? manager->put(request, body)
                                               : verb == "DELETE"
                                                   ? manager->deleteResource(request)
                                                   : manager->sendCustomRequest(request, verb, body));
    QSignalSpy(reply.get(), &QNetworkReply::finished).wait(10000);
    return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
}

/// Appends the parameters of a query or form body to @p into, encoded the way a signature base string
/// wants them: toPercentEncoding() keeps exactly the unreserved characters of RFC 3986.
void appendForm(QByteArray form, QList<QPair<QByteArray, QByteArray>> &into)
{
    for (const QByteArray &part : form.replace('+', ' ').split('&')) {
        const int equals = part.contains('=') ? part.indexOf('=') : part.size();
        if (!part.isEmpty()) {
            into.append({QByteArray::fromPercentEncoding(part.left(equals)).toPercentEncoding(),
                         QByteArray::fromPercentEncoding(part.mid(equals + 1)).toPercentEncoding()});
        }
    }
}

/// What the service does with an OAuth 1 request, written from RFC 5849 alone so that it shares no code
/// with the client: the header (3.5.1), the base string (3.4.1) and the HMAC-SHA1 key (3.4.2). Returns
/// an empty string when @p received is correctly signed for @p tokenSecret, else what is wrong with it.
QByteArray oauth1Problem(const TestHttpServer::ReceivedRequest &received, const QString &tokenSecret)
{
    QMap<QByteArray, QByteArray> oauth;
    const QString header = QString::fromLatin1(received.headers.value("authorization"));
    auto items = QRegularExpression(QStringLiteral("(?:^OAuth |, )(\\w+)=\"([^\"]*)\"")).globalMatch(header);
    while (items.hasNext()) {
        const auto item = items.next();
        oauth.insert(item.captured(1).toLatin1(),
                     QByteArray::fromPercentEncoding(item.captured(2).toLatin1()));
    }
    if (oauth.value("oauth_version") != "1.0" || oauth.value("oauth_signature_method") != "HMAC-SHA1" ||
        oauth.value("oauth_consumer_key") != ConsumerKey.toUtf8() ||
        oauth.value("oauth_token") != Token.toUtf8() || oauth.value("oauth_nonce").isEmpty() ||
        qAbs(oauth.value("oauth_timestamp").toLongLong() - QDateTime::currentSecsSinceEpoch()) > 300) {
        return "wrong or missing protocol parameters";
    }
    QList<QPair<QByteArray, QByteArray>> parameters;
    appendForm(received.query, parameters);
    if (received.headers.value("content-type") == "application/x-www-form-urlencoded") {
        appendForm(received.body, parameters);
    }
    for (auto it = oauth.cbegin(); it != oauth.cend(); ++it) {
        if (it.key() != "oauth_signature") {
            parameters.append({it.key(), it.value().toPercentEncoding()});
        }
    }
    std::sort(parameters.begin(), parameters.end());
    QByteArrayList joined;
    for (const auto &[name, value] : parameters) {
        joined.append(name + '=' + value);
    }
    const QByteArray uri = "http://" + received.headers.value("host").toLower() + received.path;
    const QByteArray base =
        received.method + '&' + uri.toPercentEncoding() + '&' + joined.join('&').toPercentEncoding();
    const QByteArray key =
        ConsumerSecret.toUtf8().toPercentEncoding() + '&' + tokenSecret.toUtf8().toPercentEncoding();
    const QByteArray expected =
        QMessageAuthenticationCode::hash(base, key, QCryptographicHash::Sha1).toBase64();
    return expected == oauth.value("oauth_signature") ? QByteArray() : "signature mismatch";
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
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.*=true\nqt.networkauth.*=true"));
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

    void oauth1_data()
    {
        QTest::addColumn<QByteArray>("verb");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("type");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("repeatedName"); // Qt's signature code warns about it
        const auto row = [](const char *name, const QByteArray &verb, const char *path,
                            const QByteArray &type = {}, const QByteArray &body = {},
                            const char *repeated = "") {
            QTest::newRow(name) << verb << QString::fromUtf8(path) << type << body
                                << QString::fromUtf8(repeated);
        };
        const QByteArray form = "application/x-www-form-urlencoded";
        row("GET with query", "GET", "/r?b=2&a=1&text=hello+world&escaped=%2B%26%3D%25&u=%C3%A9&flag&a=0", {},
            {}, "a");
        row("POST form body", "POST", "/r?z=last", form, "name=J%C3%BCrgen+M&z=first&empty=", "z");
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
        QFETCH(QString, repeatedName);
        const AuthorizationHandle handle = registered(
            new OAuth1Authorization({m_first.host()}, ConsumerKey, ConsumerSecret, Token, TokenSecret));
        QNetworkRequest request(m_first.url().resolved(QUrl(path)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, type.isEmpty() ? QVariant() : type);
        const QRegularExpression nonce(QStringLiteral("oauth_nonce=\"[^\"]+"));
        QStringList nonces;
        for (int i = 0; i < 2; ++i) {
            if (!repeatedName.isEmpty()) {
                QTest::ignoreMessage(QtWarningMsg,
                                     qPrintable(QStringLiteral("duplicated key ") + repeatedName));
            }
            QCOMPARE(send(request, verb, body), 200);
            const auto received = m_first.lastRequest();
            QCOMPARE(received.method, verb);
            QCOMPARE(oauth1Problem(received, TokenSecret), QByteArray());
            QCOMPARE(oauth1Problem(received, QStringLiteral("other")), QByteArray("signature mismatch"));
            nonces.append(
                nonce.match(QString::fromLatin1(received.headers.value("authorization"))).captured());
        }
        QVERIFY(!nonces.at(0).isEmpty() && nonces.at(0) != nonces.at(1)); // fresh for each request
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
};

QTEST_GUILESS_MAIN(TestNetworkAccessManager)
#include "tst_networkaccessmanager.moc"

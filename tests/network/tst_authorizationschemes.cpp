#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/basicauthorization.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>
#include <VantroNetwork/oauth1authorization.h>

#include "testhttpserver.h"

#include <QMessageAuthenticationCode>
#include <QNetworkReply>
#include <QtTest>

#include <httplib.h>

#include <algorithm>

using namespace vn::network;
using vn::test::TestHttpServer;

namespace {

const QString ConsumerKey = QStringLiteral("consumer key");
const QString ConsumerSecret = QStringLiteral("c0nsumer&secret+/=");
const QString Token = QStringLiteral("t0ken");
const QString TokenSecret = QStringLiteral("t0ken secret%ü");

struct Answer
{
    int status = 0;
    QByteArray body;
};

Answer send(const QNetworkRequest &request, const QByteArray &verb, const QByteArray &body)
{
    std::unique_ptr<QNetworkReply> reply(
        NetworkAccessManager::sharedInstance()->sendCustomRequest(request, verb, body));
    QSignalSpy finished(reply.get(), &QNetworkReply::finished);
    if (!reply->isFinished()) {
        finished.wait(10000);
    }
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll()};
}

AuthorizationHandle registered(Authorization *authorization)
{
    const auto registry = AuthorizationRegistry::instance();
    return AuthorizationHandle(registry->add(authorization), HandleDeleter(registry));
}

// What the service does with an OAuth 1 request, written from RFC 5849 alone so that it shares no
// code with the client: the base string (3.4.1), the HMAC-SHA1 key (3.4.2) and the header (3.5.1).
QByteArray encode(const QByteArray &utf8)
{
    QByteArray out;
    for (const char c : utf8) {
        if (std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '.' || c == '_' || c == '~') {
            out += c;
        } else {
            out +=
                '%' + QByteArray::number(static_cast<unsigned char>(c), 16).rightJustified(2, '0').toUpper();
        }
    }
    return out;
}

QList<QPair<QByteArray, QByteArray>> decodeForm(const QByteArray &form)
{
    QList<QPair<QByteArray, QByteArray>> pairs;
    for (QByteArray part : form.split('&')) {
        if (part.isEmpty()) {
            continue;
        }
        part.replace('+', ' ');
        const int equals = part.indexOf('=');
        const QByteArray name = equals < 0 ? part : part.left(equals);
        const QByteArray value = equals < 0 ? QByteArray() : part.mid(equals + 1);
        pairs.append({QByteArray::fromPercentEncoding(name), QByteArray::fromPercentEncoding(value)});
    }
    return pairs;
}

// Returns an empty string when the request is correctly signed, else what is wrong with it.
QByteArray verifyOAuth1(const httplib::Request &request, const QString &tokenSecret)
{
    QByteArray header = QByteArray::fromStdString(request.get_header_value("Authorization"));
    if (!header.startsWith("OAuth ")) {
        return "no OAuth header";
    }
    QMap<QByteArray, QByteArray> oauth;
    for (const QByteArray &item : header.mid(6).split(',')) {
        const QByteArray trimmed = item.trimmed();
        const int equals = trimmed.indexOf('=');
        if (equals < 0 || !trimmed.endsWith('"') || trimmed.at(equals + 1) != '"') {
            return "malformed header parameter";
        }
        oauth.insert(QByteArray::fromPercentEncoding(trimmed.left(equals)),
                     QByteArray::fromPercentEncoding(trimmed.mid(equals + 2).chopped(1)));
    }
    if (oauth.value("oauth_version") != "1.0" || oauth.value("oauth_signature_method") != "HMAC-SHA1" ||
        oauth.value("oauth_consumer_key") != ConsumerKey.toUtf8() ||
        oauth.value("oauth_token") != Token.toUtf8() || oauth.value("oauth_nonce").isEmpty()) {
        return "wrong or missing protocol parameters";
    }
    if (qAbs(oauth.value("oauth_timestamp").toLongLong() - QDateTime::currentSecsSinceEpoch()) > 300) {
        return "stale timestamp";
    }

    const QByteArray target = QByteArray::fromStdString(request.target);
    const int question = target.indexOf('?');
    const QByteArray path = question < 0 ? target : target.left(question);
    QList<QPair<QByteArray, QByteArray>> parameters =
        decodeForm(question < 0 ? QByteArray() : target.mid(question + 1));
    if (QByteArray::fromStdString(request.get_header_value("Content-Type")) ==
        "application/x-www-form-urlencoded") {
        parameters += decodeForm(QByteArray::fromStdString(request.body));
    }
    for (auto it = oauth.cbegin(); it != oauth.cend(); ++it) {
        if (it.key() != "oauth_signature" && it.key() != "realm") {
            parameters.append({it.key(), it.value()});
        }
    }
    QList<QPair<QByteArray, QByteArray>> encoded;
    for (const auto &[name, value] : parameters) {
        encoded.append({encode(name), encode(value)});
    }
    std::sort(encoded.begin(), encoded.end());
    QByteArrayList joined;
    for (const auto &[name, value] : encoded) {
        joined.append(name + '=' + value);
    }
    const QByteArray baseUri =
        "http://" + QByteArray::fromStdString(request.get_header_value("Host")).toLower() + path;
    const QByteArray base =
        QByteArray::fromStdString(request.method) + '&' + encode(baseUri) + '&' + encode(joined.join('&'));
    const QByteArray key = encode(ConsumerSecret.toUtf8()) + '&' + encode(tokenSecret.toUtf8());
    const QByteArray expected =
        QMessageAuthenticationCode::hash(base, key, QCryptographicHash::Sha1).toBase64();
    return expected == oauth.value("oauth_signature") ? QByteArray() : "signature mismatch";
}

} // namespace

class TestAuthorizationSchemes : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_server.isListening());
        m_server.server().Get("/basic", [](const httplib::Request &request, httplib::Response &response) {
            const QByteArray header = QByteArray::fromStdString(request.get_header_value("Authorization"));
            if (!header.startsWith("Basic ")) {
                response.status = 401;
                return;
            }
            response.set_content(QByteArray::fromBase64(header.mid(6)).toStdString(), "text/plain");
        });
        const auto checkOAuth1 = [this](const httplib::Request &request, httplib::Response &response) {
            const QByteArray problem = verifyOAuth1(request, m_serverTokenSecret);
            response.status = problem.isEmpty() ? 200 : 401;
            response.set_content(problem.toStdString(), "text/plain");
            std::lock_guard<std::mutex> lock(m_mutex);
            m_nonces.append(QByteArray::fromStdString(request.get_header_value("Authorization")));
        };
        m_server.server().Get("/oauth/resource", checkOAuth1);
        m_server.server().Post("/oauth/resource", checkOAuth1);
        m_server.server().Put("/oauth/resource", checkOAuth1);
        m_server.server().Delete("/oauth/resource", checkOAuth1);
        m_server.server().Patch("/oauth/resource", checkOAuth1);
    }

    void cleanup() { QCOMPARE(AuthorizationRegistry::instance()->count(), 0); }

    // Open keep-alive connections would hold the server's threads until their idle time-out.
    void cleanupTestCase() { NetworkAccessManager::sharedInstance()->clearConnectionCache(); }

    void basic_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QString>("password");
        QTest::newRow("ASCII") << "Aladdin"
                               << "open sesame";
        QTest::newRow("UTF-8, colons in the password") << "Jürgen"
                                                       << "pä:ss:wört";
        QTest::newRow("empty password") << "guest"
                                        << "";
    }

    void basic()
    {
        QFETCH(QString, userName);
        QFETCH(QString, password);
        const AuthorizationHandle handle =
            registered(new BasicAuthorization({m_server.host()}, userName, password));
        const Answer answer =
            send(QNetworkRequest(m_server.url(QStringLiteral("/basic"))), "GET", QByteArray());
        QCOMPARE(answer.status, 200);
        QCOMPARE(QString::fromUtf8(answer.body), userName + QLatin1Char(':') + password);
    }

    void oauth1_data()
    {
        QTest::addColumn<QByteArray>("verb");
        QTest::addColumn<QString>("pathAndQuery");
        QTest::addColumn<QByteArray>("contentType");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<QString>("serverTokenSecret");
        QTest::addColumn<int>("expectedStatus");
        QTest::addColumn<QString>("repeatedName"); // Qt's signature code warns about it, once

        const QString path = QStringLiteral("/oauth/resource");
        const QByteArray form = "application/x-www-form-urlencoded";
        QTest::newRow("GET") << QByteArray("GET") << path << QByteArray() << QByteArray() << TokenSecret
                             << 200 << QString();
        QTest::newRow("GET with query")
            << QByteArray("GET") << path + "?b=2&a=1&text=hello+world&escaped=%2B%26%3D%25&u=%C3%A9&flag&a=0"
            << QByteArray() << QByteArray() << TokenSecret << 200 << QStringLiteral("a");
        QTest::newRow("POST form body")
            << QByteArray("POST") << path + "?z=last" << form
            << QByteArray("name=J%C3%BCrgen+M&z=first&empty=") << TokenSecret << 200 << QStringLiteral("z");
        QTest::newRow("POST JSON body, unsigned")
            << QByteArray("POST") << path << QByteArray("application/json") << QByteArray("{\"a\":\"b=c\"}")
            << TokenSecret << 200 << QString();
        QTest::newRow("PUT form body")
            << QByteArray("PUT") << path << form << QByteArray("k=v") << TokenSecret << 200 << QString();
        QTest::newRow("PATCH form body")
            << QByteArray("PATCH") << path << form << QByteArray("k=v+w") << TokenSecret << 200 << QString();
        QTest::newRow("DELETE") << QByteArray("DELETE") << path + "?id=7" << QByteArray() << QByteArray()
                                << TokenSecret << 200 << QString();
        QTest::newRow("server holds another token secret")
            << QByteArray("GET") << path << QByteArray() << QByteArray() << QStringLiteral("other") << 401
            << QString();
    }

    void oauth1()
    {
        QFETCH(QByteArray, verb);
        QFETCH(QString, pathAndQuery);
        QFETCH(QByteArray, contentType);
        QFETCH(QByteArray, body);
        QFETCH(QString, serverTokenSecret);
        QFETCH(int, expectedStatus);
        QFETCH(QString, repeatedName);
        if (!repeatedName.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg, qPrintable(QStringLiteral("duplicated key ") + repeatedName));
        }
        m_serverTokenSecret = serverTokenSecret;
        const AuthorizationHandle handle = registered(
            new OAuth1Authorization({m_server.host()}, ConsumerKey, ConsumerSecret, Token, TokenSecret));

        QUrl url = m_server.url();
        url = url.resolved(QUrl(pathAndQuery));
        QNetworkRequest request(url);
        if (!contentType.isEmpty()) {
            request.setHeader(QNetworkRequest::ContentTypeHeader, contentType);
        }
        const Answer answer = send(request, verb, body);
        QVERIFY2(answer.status == expectedStatus, answer.body.constData());
    }

    void oauth1FreshNoncePerRequest()
    {
        const AuthorizationHandle handle = registered(
            new OAuth1Authorization({m_server.host()}, ConsumerKey, ConsumerSecret, Token, TokenSecret));
        m_serverTokenSecret = TokenSecret;
        {
            std::lock_guard<std::mutex> lock(m_mutex);
            m_nonces.clear();
        }
        const QNetworkRequest request(m_server.url(QStringLiteral("/oauth/resource")));
        QCOMPARE(send(request, "GET", QByteArray()).status, 200);
        QCOMPARE(send(request, "GET", QByteArray()).status, 200);
        std::lock_guard<std::mutex> lock(m_mutex);
        QCOMPARE(m_nonces.size(), 2);
        const QRegularExpression nonce(QStringLiteral("oauth_nonce=\"([^\"]+)\""));
        const QString first = nonce.match(QString::fromLatin1(m_nonces.at(0))).captured(1);
        QVERIFY(!first.isEmpty());
        QVERIFY(first != nonce.match(QString::fromLatin1(m_nonces.at(1))).captured(1));
    }

    void secretsNeverLogged()
    {
        static QStringList captured;
        captured.clear();
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.*=true\nqt.networkauth.*=true"));
        const auto previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &, const QString &text) { captured.append(text); });
        const auto restore = qScopeGuard([previous] {
            qInstallMessageHandler(previous);
            QLoggingCategory::setFilterRules(QString());
        });

        const QString password = QStringLiteral("basic-password-secret");
        const QByteArray bearer = "bearer-token-secret";
        const auto registry = AuthorizationRegistry::instance();
        {
            // Every path that logs: registration, withdrawal, refusals, the warnings and signing.
            const AuthorizationHandle basic =
                registered(new BasicAuthorization({m_server.host()}, QStringLiteral("us:er"), password));
            const AuthorizationHandle tainted =
                registered(new BearerAuthorization({QStringLiteral("example.com")}, bearer + "\r\nX: y"));
            AuthorizationHandle plain = registered(new BearerAuthorization({m_server.host()}, bearer));
            registry->add(plain.get());
            send(QNetworkRequest(m_server.url(QStringLiteral("/basic"))), "GET", QByteArray());
            const std::unique_ptr<Authorization> takenBack = registry->remove(plain.get());
            plain.reset();
            send(QNetworkRequest(m_server.url(QStringLiteral("/basic"))), "GET", QByteArray());
            const AuthorizationHandle oauth = registered(
                new OAuth1Authorization({m_server.host()}, ConsumerKey, ConsumerSecret, Token, TokenSecret));
            send(QNetworkRequest(m_server.url(QStringLiteral("/oauth/res ource?a=1&a=2"))), "GET",
                 QByteArray());
        }
        QVERIFY(!captured.isEmpty());
        const QString all = captured.join(QLatin1Char('\n'));
        for (const QString &secret : {password, QString::fromLatin1(bearer), ConsumerSecret, TokenSecret,
                                      QString::fromLatin1(QUrl::toPercentEncoding(TokenSecret))}) {
            QVERIFY2(!all.contains(secret), "a secret reached a log line");
        }
    }

private:
    TestHttpServer m_server{QStringLiteral("127.0.0.1")};
    QString m_serverTokenSecret;
    std::mutex m_mutex;
    QList<QByteArray> m_nonces;
};

QTEST_GUILESS_MAIN(TestAuthorizationSchemes)
#include "tst_authorizationschemes.moc"

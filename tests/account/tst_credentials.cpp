#include "accountinstance.h"
#include "testhttpserver.h"

#include <VantroAccount/resource.h>
#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QNetworkReply>
#include <QOAuth1Signature>
#include <QPointer>
#include <QtTest>

#include <httplib.h>

using vn::account::AccountInstance;
using vn::account::Resource;
using vn::network::AuthorizationRegistry;
using vn::network::NetworkAccessManager;

namespace {

const QString Realm = QStringLiteral("127.0.0.1");
const QString Author = QStringLiteral("vantro.resource.AuthorCredentials");
const QString Device = QStringLiteral("vantro.resource.DeviceCredentials");

// A null kind or realm leaves that member out.
QJsonObject payload(const QString &kind, const QJsonObject &credentials, const QString &realm = Realm)
{
    QJsonObject payload{{QStringLiteral("credentials"), credentials}};
    if (!kind.isNull()) {
        payload.insert(QStringLiteral("type"), kind);
    }
    if (!realm.isNull()) {
        payload.insert(QStringLiteral("realm"), realm);
    }
    return payload;
}

// "OAuth a="1", b="2"" into its decoded parameters. (The test server may hand over the header
// already percent-decoded; the values used here decode to themselves either way.)
QMap<QString, QString> oauthParameters(const QByteArray &header)
{
    QMap<QString, QString> parameters;
    const QList<QByteArray> items = header.mid(int(qstrlen("OAuth "))).split(',');
    for (const QByteArray &item : items) {
        const QByteArray trimmed = item.trimmed();
        const int equals = trimmed.indexOf('=');
        if (header.startsWith("OAuth ") && equals > 0 && trimmed.endsWith('"')) {
            parameters.insert(QUrl::fromPercentEncoding(trimmed.left(equals)),
                              QUrl::fromPercentEncoding(trimmed.mid(equals + 2).chopped(1)));
        }
    }
    return parameters;
}

} // namespace

class TestCredentials : public QObject
{
    Q_OBJECT

private:
    vn::test::TestHttpServer m_server{Realm};
    int m_baseline = 0;

    // The Authorization header that the server received for a request sent to the realm through
    // the shared manager; empty when there was none.
    QByteArray authorizationSeen()
    {
        m_server.clearRequests();
        std::unique_ptr<QNetworkReply> reply(NetworkAccessManager::sharedInstance()->get(
            QNetworkRequest(m_server.url(QStringLiteral("/probe")))));
        QSignalSpy finished(reply.get(), &QNetworkReply::finished);
        if ((!reply->isFinished() && !finished.wait(10000)) || reply->error() != QNetworkReply::NoError ||
            m_server.requestCount() != 1) {
            return "(request failed)";
        }
        return m_server.lastRequest().headers.value("authorization");
    }

    // The records are unsigned and the instance has no identity chain: each resource is invalid,
    // says so, and registers its credentials all the same.
    QPointer<Resource> create(const QString &type, const QJsonObject &payload, AccountInstance *instance)
    {
        QTest::ignoreMessage(QtCriticalMsg, "No issuer declared on resource cred-1");
        Resource *resource = Resource::create(QJsonObject{{QStringLiteral("id"), QStringLiteral("cred-1")},
                                                          {QStringLiteral("type"), type},
                                                          {QStringLiteral("issuer"), QStringLiteral("leaf")},
                                                          {QStringLiteral("payload"), payload}},
                                              instance);
        return resource->isValid() ? nullptr : resource;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_server.isListening());
        m_server.server().Get("/probe", [](const httplib::Request &, httplib::Response &response) {
            response.set_content("ok", "text/plain");
        });
        m_baseline = AuthorizationRegistry::instance()->count();
        QCOMPARE(authorizationSeen(), QByteArray());
    }

    // The server waits for kept-alive connections to close before it stops.
    void cleanupTestCase() { NetworkAccessManager::sharedInstance()->clearConnectionCache(); }

    void cleanup() { QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline); }

    void registeredWhileAlive_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QJsonObject>("payload");
        QTest::addColumn<QByteArray>("header");

        const QJsonObject token{{QStringLiteral("token"), QStringLiteral("db-token.42")}};
        const QJsonObject user{{QStringLiteral("userName"), QStringLiteral("ada")},
                               {QStringLiteral("password"), QStringLiteral("pä55:wörd")}};
        const QByteArray basic = "Basic " + QStringLiteral("ada:pä55:wörd").toUtf8().toBase64();
        QTest::newRow("author, bearer")
            << Author << payload(QStringLiteral("bearer"), token) << QByteArray("Bearer db-token.42");
        QTest::newRow("device, bearer")
            << Device << payload(QStringLiteral("bearer"), token) << QByteArray("Bearer db-token.42");
        QTest::newRow("author, basic") << Author << payload(QStringLiteral("basic"), user) << basic;
        QTest::newRow("device, basic") << Device << payload(QStringLiteral("basic"), user) << basic;
        QTest::newRow("basic without password")
            << Author
            << payload(QStringLiteral("basic"), {{QStringLiteral("userName"), QStringLiteral("ada")}})
            << "Basic " + QByteArray("ada:").toBase64();
    }

    void registeredWhileAlive()
    {
        QFETCH(QString, type);
        QFETCH(QJsonObject, payload);
        QFETCH(QByteArray, header);

        AccountInstance instance;
        QPointer<Resource> resource = create(type, payload, &instance);
        QVERIFY(resource);
        QCOMPARE(resource->property("credentialType").toString(),
                 payload.value(QLatin1String("type")).toString());
        QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline + 1);
        QCOMPARE(authorizationSeen(), header);

        delete resource.data();
        QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline);
        QCOMPARE(authorizationSeen(), QByteArray());
    }

    // The account instance owns its resources: when it goes, their credentials go with it.
    void withdrawnWithInstance()
    {
        auto instance = std::make_unique<AccountInstance>();
        const QPointer<Resource> resource = create(
            Device, payload(QStringLiteral("bearer"), {{QStringLiteral("token"), QStringLiteral("t2")}}),
            instance.get());
        QCOMPARE(authorizationSeen(), QByteArray("Bearer t2"));
        instance.reset();
        QVERIFY(!resource);
        QCOMPARE(authorizationSeen(), QByteArray());
    }

    void oauth1_data()
    {
        QTest::addColumn<QString>("type");
        QTest::newRow("author") << Author;
        QTest::newRow("device") << Device;
    }

    // Consumer key and token travel in the header; the secrets only shape the signature, so the
    // server checks that with each secret in its own place.
    void oauth1()
    {
        QFETCH(QString, type);

        const QString consumerSecret = QStringLiteral("cs/secret+1");
        const QString tokenSecret = QStringLiteral("ts&secret 2");
        AccountInstance instance;
        const QPointer<Resource> resource =
            create(type,
                   payload(QStringLiteral("oauth1"),
                           {{QStringLiteral("consumerKey"), QStringLiteral("ck-catalogue")},
                            {QStringLiteral("consumerSecret"), consumerSecret},
                            {QStringLiteral("token"), QStringLiteral("tk-ada")},
                            {QStringLiteral("tokenSecret"), tokenSecret}}),
                   &instance);
        QVERIFY(resource);

        QMap<QString, QString> parameters = oauthParameters(authorizationSeen());
        QCOMPARE(parameters.value(QStringLiteral("oauth_consumer_key")), QStringLiteral("ck-catalogue"));
        QCOMPARE(parameters.value(QStringLiteral("oauth_token")), QStringLiteral("tk-ada"));
        const QString signature = parameters.take(QStringLiteral("oauth_signature"));
        QMultiMap<QString, QVariant> signedParameters;
        for (auto it = parameters.cbegin(); it != parameters.cend(); ++it) {
            signedParameters.insert(it.key(), it.value());
        }
        QOAuth1Signature expected(m_server.url(QStringLiteral("/probe")), consumerSecret, tokenSecret,
                                  QOAuth1Signature::HttpRequestMethod::Get, signedParameters);
        QCOMPARE(signature, QString::fromLatin1(expected.hmacSha1().toBase64()));
    }

    void nothingAuthorised_data()
    {
        QTest::addColumn<QJsonObject>("payload");
        QTest::addColumn<int>("registered");
        QTest::addColumn<QString>("warning");

        const QJsonObject token{{QStringLiteral("token"), QStringLiteral("t4")}};
        QTest::newRow("capital first letter")
            << payload(QStringLiteral("Bearer"), token) << 0
            << QStringLiteral(R"(Unsupported credential type "Bearer" in resource "cred-1")");
        QTest::newRow("other scheme")
            << payload(QStringLiteral("digest"), token) << 0
            << QStringLiteral(R"(Unsupported credential type "digest" in resource "cred-1")");
        QTest::newRow("no kind") << payload(QString(), token) << 0
                                 << QStringLiteral(R"(Unsupported credential type "" in resource "cred-1")");
        // Registered for an empty host, which no request matches.
        QTest::newRow("no realm") << payload(QStringLiteral("bearer"), token, QString()) << 1 << QString();
    }

    void nothingAuthorised()
    {
        QFETCH(QJsonObject, payload);
        QFETCH(int, registered);
        QFETCH(QString, warning);

        AccountInstance instance;
        if (!warning.isEmpty()) {
            QTest::ignoreMessage(QtWarningMsg, qPrintable(warning));
        }
        const QPointer<Resource> resource = create(Author, payload, &instance);
        QVERIFY(resource);
        QCOMPARE(AuthorizationRegistry::instance()->count(), m_baseline + registered);
        QCOMPARE(authorizationSeen(), QByteArray());
    }
};

QTEST_GUILESS_MAIN(TestCredentials)
#include "tst_credentials.moc"

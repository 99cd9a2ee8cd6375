// What the development service answers a logged-in client: session, consumer, identity chain,
// resources, service tokens, logins; and that nothing is answered without a live login.

#include "serviceclient.h"

#include <devservice.h>

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/publickey.h>

#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QUuid>

using vn::devservice::DevService;
using vn::test::Reply;
using vn::test::ServiceClient;

namespace {

const QString Ada = QStringLiteral("ada@example.com");
const QString AdaPassword = QStringLiteral("ada-demo-password");
const QString Bob = QStringLiteral("bob@example.com");
const QString BobPassword = QStringLiteral("bob-demo-password");

const QString FilesService = QStringLiteral("e229d538-f031-47f0-8501-7318f794bdf8");
const QString ReportsService = QStringLiteral("5a0e8c1e-6f3b-4d2a-9c47-8b1d2e3f4a5b");
const QString Database = QStringLiteral("d28dbfe9-09a6-4d70-b66e-2645d0940d90");

QString text(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

} // namespace

class TestDevServiceAccount : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void refusedWithoutLiveLogin_data();
    void refusedWithoutLiveLogin();
    void consumer();
    void identityChainVerifiesUnderTheConfiguredRoot();
    void resourcesVerifyAgainstTheChain_data();
    void resourcesVerifyAgainstTheChain();
    void serviceToken_data();
    void serviceToken();
    void loginList();
    void deleteLogin_data();
    void deleteLogin();
    void passwordReset_data();
    void passwordReset();
    void basePath();

private:
    static QStringList authenticatedEndpoints();
    Reply send(ServiceClient &client, const QString &endpoint);

    DevService m_service;
    QTemporaryDir m_directory;
};

void TestDevServiceAccount::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    QVERIFY(m_directory.isValid());
}

QStringList TestDevServiceAccount::authenticatedEndpoints()
{
    return {QStringLiteral("GET logins/current"),         QStringLiteral("GET consumer"),
            QStringLiteral("GET account/identity"),       QStringLiteral("GET entitled"),
            QStringLiteral("GET tokens/") + FilesService, QStringLiteral("GET logins?format=all_fields"),
            QStringLiteral("DELETE logins/some-login"),   QStringLiteral("DELETE logins/current")};
}

Reply TestDevServiceAccount::send(ServiceClient &client, const QString &endpoint)
{
    const QString method = endpoint.section(QLatin1Char(' '), 0, 0);
    const QString path = endpoint.section(QLatin1Char(' '), 1);
    return method == QLatin1String("GET") ? client.get(path) : client.remove(path);
}

void TestDevServiceAccount::refusedWithoutLiveLogin_data()
{
    QTest::addColumn<QString>("credential");
    QTest::newRow("no authorization") << QString();
    QTest::newRow("unknown token") << QStringLiteral("Bearer eyJhbGciOiJSUzI1NiJ9.e30.c2ln");
    QTest::newRow("logged out") << QStringLiteral("logout");
    QTest::newRow("login deleted from elsewhere") << QStringLiteral("deleted");
}

void TestDevServiceAccount::refusedWithoutLiveLogin()
{
    QFETCH(QString, credential);

    ServiceClient client(m_service.url());
    if (credential == QLatin1String("logout") || credential == QLatin1String("deleted")) {
        const QByteArray token = client.login(Ada, AdaPassword);
        client.setToken(token);
        const QString id = text(client.get(QStringLiteral("logins/current")).object(), "id");
        if (credential == QLatin1String("logout")) {
            QCOMPARE(client.remove(QStringLiteral("logins/current")).status, 200);
        } else {
            ServiceClient other(m_service.url());
            other.setToken(other.login(Ada, AdaPassword));
            QCOMPARE(other.remove(QStringLiteral("logins/") + id).status, 200);
        }
    } else {
        client.setAuthorization(credential.toLatin1());
    }
    for (const QString &endpoint : authenticatedEndpoints()) {
        const Reply reply = send(client, endpoint);
        QVERIFY2(reply.status == 401,
                 qPrintable(endpoint + QLatin1String(": ") + QString::number(reply.status)));
    }
}

void TestDevServiceAccount::consumer()
{
    ServiceClient client(m_service.url());
    client.setToken(client.login(Ada, AdaPassword));
    const Reply reply = client.get(QStringLiteral("consumer"));
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.object(), (QJsonObject{{"id", "d99d9154-7a9c-4694-a1c7-0e2359e87f70"},
                                          {"name", "Ada Lovelace"},
                                          {"email", Ada},
                                          {"permissions", QJsonArray{0x23, 0x4f, 0x11, 0x20001}},
                                          {"roles", QJsonArray{"admin", "author"}}}));
}

void TestDevServiceAccount::identityChainVerifiesUnderTheConfiguredRoot()
{
    // The configuration the service writes is what a client trusts: check it as the client does.
    const QString path = m_directory.filePath(QStringLiteral("account.json"));
    QVERIFY(m_service.writeConfiguration(path));
    QFile file(path);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QByteArray content = file.readAll();
    QVERIFY(content.size() < 4096);
    QCOMPARE(file.permissions() & (QFileDevice::ReadOther | QFileDevice::WriteOther),
             QFileDevice::Permissions(QFileDevice::ReadOther));
    const QJsonObject configuration = QJsonDocument::fromJson(content).object();
    QVERIFY(vn::crypto::JsonSignature::verify(configuration,
                                              vn::crypto::PublicKey(QStringLiteral(ACCOUNT_CONFIG_KEY))));
    QCOMPARE(text(configuration, "serviceUrl"), QStringLiteral("http://127.0.0.1:%1").arg(m_service.port()));
    const QJsonObject root = configuration.value(QLatin1String("rootIdentity")).toObject();

    ServiceClient client(m_service.url());
    client.setToken(client.login(Ada, AdaPassword));
    const Reply reply = client.get(QStringLiteral("account/identity"));
    QCOMPARE(reply.status, 200);
    const QJsonArray chain = reply.array();
    QCOMPARE(chain.size(), 2);
    vn::crypto::PublicKey parentKey(text(root, "publicKey").toLatin1());
    QString parentId = text(root, "uuid");
    for (const QJsonValue &element : chain) {
        const QJsonObject record = element.toObject();
        QVERIFY2(vn::crypto::JsonSignature::verify(record, parentKey), qPrintable(text(record, "id")));
        QCOMPARE(text(record, "parent"), parentId);
        parentKey = vn::crypto::PublicKey(text(record, "publicKey").toLatin1());
        QCOMPARE(parentKey.bits(), 3072);
        parentId = text(record, "id");
    }
    // A record signed by anything but its parent does not verify.
    QVERIFY(!vn::crypto::JsonSignature::verify(chain.at(1).toObject(),
                                               vn::crypto::PublicKey(text(root, "publicKey").toLatin1())));
}

void TestDevServiceAccount::resourcesVerifyAgainstTheChain_data()
{
    QTest::addColumn<QString>("username");
    QTest::addColumn<QString>("password");
    QTest::addColumn<int>("count");
    QTest::newRow("ada") << Ada << AdaPassword << 9;
    QTest::newRow("bob") << Bob << BobPassword << 5;
}

void TestDevServiceAccount::resourcesVerifyAgainstTheChain()
{
    QFETCH(QString, username);
    QFETCH(QString, password);
    QFETCH(int, count);

    ServiceClient client(m_service.url());
    client.setToken(client.login(username, password));
    QHash<QString, vn::crypto::PublicKey> keys;
    for (const QJsonValue &element : client.get(QStringLiteral("account/identity")).array()) {
        keys.insert(text(element.toObject(), "id"),
                    vn::crypto::PublicKey(text(element.toObject(), "publicKey").toLatin1()));
    }
    const Reply reply = client.get(QStringLiteral("entitled"));
    QCOMPARE(reply.status, 200);
    QCOMPARE(reply.array().size(), count);
    QSet<QString> kinds;
    for (const QJsonValue &element : reply.array()) {
        const QJsonObject resource = element.toObject();
        QVERIFY2(keys.contains(text(resource, "issuer")), qPrintable(text(resource, "id")));
        QVERIFY2(vn::crypto::JsonSignature::verify(resource, keys.value(text(resource, "issuer"))),
                 qPrintable(text(resource, "id")));
        QVERIFY(keys.contains(text(resource, "owner")));
        QString kind = text(resource, "type");
        if (kind.endsWith(QLatin1String("Credentials"))) {
            kind += QLatin1Char('/') + text(resource.value(QLatin1String("payload")).toObject(), "type");
        }
        kinds.insert(kind);
    }
    QVERIFY(kinds.contains(QStringLiteral("vantro.resource.Database")));
    QVERIFY(kinds.contains(QStringLiteral("vantro.resource.Service")));
    for (const char *kind : {"bearer", "basic", "oauth1"}) {
        QVERIFY(kinds.contains(QStringLiteral("vantro.resource.DeviceCredentials/") + QLatin1String(kind)));
        QCOMPARE(kinds.contains(QStringLiteral("vantro.resource.AuthorCredentials/") + QLatin1String(kind)),
                 username == Ada);
    }
}

void TestDevServiceAccount::serviceToken_data()
{
    QTest::addColumn<QString>("username");
    QTest::addColumn<QString>("password");
    QTest::addColumn<QString>("resource");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("audience");
    QTest::newRow("files") << Ada << AdaPassword << FilesService << 200 << "demo-files";
    QTest::newRow("reports, not entitled") << Bob << BobPassword << ReportsService << 404 << QString();
    QTest::newRow("not a service") << Ada << AdaPassword << Database << 404 << QString();
    QTest::newRow("unknown") << Ada << AdaPassword << QUuid::createUuid().toString(QUuid::WithoutBraces)
                             << 404 << QString();
}

void TestDevServiceAccount::serviceToken()
{
    QFETCH(QString, username);
    QFETCH(QString, password);
    QFETCH(QString, resource);
    QFETCH(int, status);
    QFETCH(QString, audience);

    m_service.setServiceTokenLifetime(120);
    ServiceClient client(m_service.url());
    client.setToken(client.login(username, password));
    const Reply reply = client.get(QStringLiteral("./tokens/") + resource);
    QCOMPARE(reply.status, status);
    if (status != 200) {
        return;
    }
    const QByteArray token = text(reply.object(), "token").toLatin1();
    const QJsonObject claims =
        QJsonDocument::fromJson(QByteArray::fromBase64(token.split('.').value(1))).object();
    QCOMPARE(text(claims, "aud"), audience);
    QCOMPARE(text(claims, "iss"), QStringLiteral("http://127.0.0.1:%1").arg(m_service.port()));
    QCOMPARE(text(claims, "sub"), text(client.get(QStringLiteral("consumer")).object(), "id"));
    const qint64 issued = qint64(claims.value(QLatin1String("iat")).toDouble());
    QVERIFY(qAbs(issued - QDateTime::currentSecsSinceEpoch()) <= 2);
    QCOMPARE(qint64(claims.value(QLatin1String("exp")).toDouble()) - issued, qint64(120));
}

void TestDevServiceAccount::loginList()
{
    ServiceClient first(m_service.url());
    ServiceClient second(m_service.url());
    ServiceClient bob(m_service.url());
    // Logins of earlier test functions would show in the list: start from a fresh scenario.
    QVERIFY(m_service.setScenario(m_service.scenario()));
    first.setToken(first.login(Ada, AdaPassword, false, QStringLiteral("first")));
    second.setToken(second.login(Ada, AdaPassword, true, QStringLiteral("second")));
    bob.setToken(bob.login(Bob, BobPassword));

    const Reply reply = first.get(QStringLiteral("logins?format=all_fields"));
    QCOMPARE(reply.status, 200);
    QStringList hosts;
    for (const QJsonValue &login : reply.array()) {
        hosts.append(text(login.toObject(), "hostInfo"));
        QVERIFY(QDateTime::fromString(text(login.toObject(), "since"), Qt::ISODate).isValid());
    }
    QCOMPARE(hosts, (QStringList{"first", "second"}));
    QCOMPARE(text(reply.array().at(0).toObject(), "id"),
             text(first.get(QStringLiteral("logins/current")).object(), "id"));
    QCOMPARE(bob.get(QStringLiteral("logins?format=all_fields")).array().size(), 1);
    QCOMPARE(m_service.logins().size(), 3);
}

void TestDevServiceAccount::deleteLogin_data()
{
    QTest::addColumn<QString>("target");
    QTest::addColumn<int>("status");
    QTest::newRow("own other login") << "own" << 200;
    QTest::newRow("another user's login") << "bob" << 404;
    QTest::newRow("unknown login") << "unknown" << 404;
}

void TestDevServiceAccount::deleteLogin()
{
    QFETCH(QString, target);
    QFETCH(int, status);

    ServiceClient caller(m_service.url());
    ServiceClient victim(m_service.url());
    caller.setToken(caller.login(Ada, AdaPassword));
    victim.setToken(target == QLatin1String("bob") ? victim.login(Bob, BobPassword)
                                                   : victim.login(Ada, AdaPassword));
    const QString id = target == QLatin1String("unknown")
                           ? QStringLiteral("no-such-login")
                           : text(victim.get(QStringLiteral("logins/current")).object(), "id");
    QCOMPARE(caller.remove(QStringLiteral("logins/") + id).status, status);
    QCOMPARE(victim.get(QStringLiteral("consumer")).status, status == 200 ? 401 : 200);
    QCOMPARE(caller.get(QStringLiteral("consumer")).status, 200);
}

void TestDevServiceAccount::passwordReset_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::newRow("known user") << QByteArray(R"({"username": "bob@example.com", "language": "de"})") << 201;
    QTest::newRow("unknown user") << QByteArray(R"({"username": "eve@example.com", "language": "en"})")
                                  << 404;
    QTest::newRow("user name a number") << QByteArray(R"({"username": 5})") << 400;
    QTest::newRow("not JSON") << QByteArray("username=bob") << 400;
}

void TestDevServiceAccount::passwordReset()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);

    ServiceClient client(m_service.url());
    QCOMPARE(client.post(QStringLiteral("password-reset"), body).status, status);
    QCOMPARE(m_service.journal().constLast().path, QByteArray("/api/v1/password-reset"));
}

void TestDevServiceAccount::basePath()
{
    DevService service;
    service.setBasePath(QStringLiteral("base/"));
    QVERIFY(service.listen(QStringLiteral("127.0.0.1"), 0));
    QCOMPARE(service.url().path(), QStringLiteral("/base"));
    QCOMPARE(text(service.configuration(), "serviceUrl"),
             QStringLiteral("http://127.0.0.1:%1/base").arg(service.port()));

    ServiceClient client(service.url());
    client.setToken(client.login(Bob, BobPassword));
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 200);
    QCOMPARE(service.journal().constLast().path, QByteArray("/base/api/v1/consumer"));
    QUrl outside = service.url();
    outside.setPath(QStringLiteral("/api/v1/consumer"));
    ServiceClient unprefixed(outside.adjusted(QUrl::RemovePath));
    unprefixed.setToken(client.login(Bob, BobPassword));
    QCOMPARE(unprefixed.get(QStringLiteral("consumer")).status, 404);
}

QTEST_GUILESS_MAIN(TestDevServiceAccount)
#include "tst_devservice_account.moc"

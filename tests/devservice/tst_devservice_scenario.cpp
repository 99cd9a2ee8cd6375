// Scenarios: scenario documents with their defaults and key files, the errors of
// broken documents, and replacing the scenario of a running service.

#include "serviceclient.h"

#include <devservice.h>
#include <scenario.h>

#include <VantroCrypto/jsonsignature.h>

#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QTest>

using vn::devservice::DevService;
using vn::devservice::Scenario;
using vn::test::Reply;
using vn::test::ServiceClient;

namespace {

const QString AccountKey = QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo/identity-account.pem");

QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

// Two users, one device, one identity and two resources; carol alone is entitled to the service.
QJsonObject smallScenario()
{
    const QByteArray devicePem =
        vn::crypto::PrivateKey(readFile(QStringLiteral(DEVSERVICE_SOURCE_DIR "/keys/demo-device.pem")))
            .publicKey()
            .toPEM();
    return QJsonObject{
        {QStringLiteral("users"),
         QJsonArray{QJsonObject{{QStringLiteral("username"), QStringLiteral("carol")},
                                {QStringLiteral("password"), QStringLiteral("carol-secret")}},
                    QJsonObject{{QStringLiteral("username"), QStringLiteral("dave")},
                                {QStringLiteral("password"), QStringLiteral("dave-secret")},
                                {QStringLiteral("consumer"),
                                 QJsonObject{{QStringLiteral("name"), QStringLiteral("Dave")},
                                             {QStringLiteral("roles"), QJsonArray{"ops"}}}}}}},
        {QStringLiteral("devices"),
         QJsonArray{QJsonObject{{QStringLiteral("user"), QStringLiteral("dave")},
                                {QStringLiteral("publicKey"), QString::fromLatin1(devicePem)}}}},
        {QStringLiteral("identities"),
         QJsonArray{QJsonObject{{QStringLiteral("id"), QStringLiteral("team")},
                                {QStringLiteral("name"), QStringLiteral("Team")},
                                {QStringLiteral("keyFile"), AccountKey}}}},
        {QStringLiteral("tokenKeyFile"), QStringLiteral("token.pem")},
        {QStringLiteral("resources"),
         QJsonArray{QJsonObject{{QStringLiteral("id"), QStringLiteral("db")},
                                {QStringLiteral("type"), QStringLiteral("vantro.resource.Database")},
                                {QStringLiteral("issuer"), QStringLiteral("root")}},
                    QJsonObject{{QStringLiteral("id"), QStringLiteral("svc")},
                                {QStringLiteral("type"), QStringLiteral("vantro.resource.Service")},
                                {QStringLiteral("users"), QJsonArray{"carol"}},
                                {QStringLiteral("payload"),
                                 QJsonObject{{QStringLiteral("service"), QStringLiteral("s")}}}}}},
    };
}

} // namespace

class TestDevServiceScenario : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void scenarioFile();
    void generatedKeysAreKeptPerProcess();
    void brokenDocuments_data();
    void brokenDocuments();
    void unreadableFiles();
    void replacingTheScenarioEndsLogins();

private:
    QTemporaryDir m_directory;
};

void TestDevServiceScenario::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_directory.isValid());
    QVERIFY(QFile::copy(QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo/token-signing.pem"),
                        m_directory.filePath(QStringLiteral("token.pem"))));
}

void TestDevServiceScenario::scenarioFile()
{
    const QString path = m_directory.filePath(QStringLiteral("small.json"));
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(QJsonDocument(smallScenario()).toJson());
    file.close();
    QString error;
    const Scenario scenario = Scenario::fromFile(path, &error);
    QVERIFY2(scenario.isValid(), qPrintable(error));
    // The token key file is found next to the document.
    QCOMPARE(scenario.tokenKey().toPEM(),
             vn::crypto::PrivateKey(readFile(QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo/token-signing.pem")))
                 .toPEM());
    // A consumer identifier left out is derived from the user name: the same on every start.
    QCOMPARE(scenario.users().at(0).consumer, Scenario::fromFile(path).users().at(0).consumer);

    DevService service(scenario);
    QVERIFY(service.listen(QStringLiteral("127.0.0.1"), 0));
    ServiceClient carol(service.url());
    carol.setToken(carol.login(QStringLiteral("carol"), QStringLiteral("carol-secret")));
    const QJsonObject consumer = carol.get(QStringLiteral("consumer")).object();
    QCOMPARE(consumer.value(QLatin1String("name")).toString(), QStringLiteral("carol"));
    QCOMPARE(consumer.value(QLatin1String("email")).toString(), QStringLiteral("carol"));
    QCOMPARE(consumer.value(QLatin1String("roles")).toArray(), QJsonArray());
    QCOMPARE(carol.get(QStringLiteral("entitled")).array().size(), 2);
    QCOMPARE(carol.get(QStringLiteral("tokens/svc")).status, 200);

    const QJsonArray chain = carol.get(QStringLiteral("account/identity")).array();
    QCOMPARE(chain.size(), 1);
    QCOMPARE(chain.at(0).toObject().value(QLatin1String("parent")).toString(), QStringLiteral("root"));

    ServiceClient dave(service.url());
    dave.setToken(dave.login(QStringLiteral("dave"), QStringLiteral("dave-secret")));
    QCOMPARE(dave.get(QStringLiteral("consumer")).object().value(QLatin1String("roles")).toArray(),
             QJsonArray{"ops"});
    const QJsonArray resources = dave.get(QStringLiteral("entitled")).array();
    QCOMPARE(resources.size(), 1);
    // Issued by the root: signed with the development root key.
    QVERIFY(vn::crypto::JsonSignature::verify(resources.at(0).toObject(),
                                              vn::crypto::PublicKey(service.configuration()
                                                                        .value(QLatin1String("rootIdentity"))
                                                                        .toObject()
                                                                        .value(QLatin1String("publicKey"))
                                                                        .toString()
                                                                        .toLatin1())));
    QCOMPARE(dave.get(QStringLiteral("tokens/svc")).status, 404);
    QCOMPARE(dave.login(QStringLiteral("carol"), QStringLiteral("dave-secret")), QByteArray());
}

void TestDevServiceScenario::generatedKeysAreKeptPerProcess()
{
    QJsonObject document = smallScenario();
    document.remove(QStringLiteral("tokenKeyFile"));
    document.insert(QStringLiteral("identities"),
                    QJsonArray{QJsonObject{{QStringLiteral("id"), QStringLiteral("generated")},
                                           {QStringLiteral("bits"), 2048}}});
    QString error;
    const Scenario first = Scenario::fromJson(document, m_directory.path(), &error);
    QVERIFY2(first.isValid(), qPrintable(error));
    QCOMPARE(first.identities().at(0).privateKey.bits(), 2048);
    const Scenario second = Scenario::fromJson(document, m_directory.path());
    QCOMPARE(second.identities().at(0).privateKey.toPEM(), first.identities().at(0).privateKey.toPEM());
    QCOMPARE(second.tokenKey().toPEM(), first.tokenKey().toPEM());
    QVERIFY(first.tokenKey().toPEM() != first.identities().at(0).privateKey.toPEM());
}

void TestDevServiceScenario::brokenDocuments_data()
{
    QTest::addColumn<QString>("pointer");
    QTest::addColumn<QJsonValue>("value");
    QTest::addColumn<QString>("error");

    QTest::newRow("users not a list") << "users" << QJsonValue(QStringLiteral("carol")) << "users:";
    QTest::newRow("user twice") << "users"
                                << QJsonValue(QJsonArray{QJsonObject{{"username", "x"}},
                                                         QJsonObject{{"username", "x"}}})
                                << "users[1].username:";
    QTest::newRow("permission zero") << "users"
                                     << QJsonValue(QJsonArray{QJsonObject{
                                            {"username", "x"},
                                            {"consumer", QJsonObject{{"permissions", QJsonArray{1, 0}}}}}})
                                     << "users[0].consumer.permissions:";
    QTest::newRow("device of nobody")
        << "devices" << QJsonValue(QJsonArray{QJsonObject{{"user", "eve"}, {"keyFile", AccountKey}}})
        << "devices[0].user:";
    QTest::newRow("device with two keys")
        << "devices"
        << QJsonValue(QJsonArray{QJsonObject{{"user", "dave"}, {"keyFile", AccountKey}, {"publicKey", "x"}}})
        << "devices[0]:";
    QTest::newRow("identity named root")
        << "identities" << QJsonValue(QJsonArray{QJsonObject{{"id", "root"}, {"keyFile", AccountKey}}})
        << "identities[0].id:";
    QTest::newRow("identity key too small")
        << "identities" << QJsonValue(QJsonArray{QJsonObject{{"id", "x"}, {"bits", 512}}})
        << "identities[0].bits:";
    QTest::newRow("resource issuer unknown")
        << "resources"
        << QJsonValue(QJsonArray{QJsonObject{{"id", "r"}, {"type", "t"}, {"issuer", "nobody"}}})
        << "resources[0].issuer:";
    QTest::newRow("resource for an unknown user")
        << "resources"
        << QJsonValue(QJsonArray{QJsonObject{{"id", "r"}, {"type", "t"}, {"users", QJsonArray{"eve"}}}})
        << "resources[0].users:";
}

void TestDevServiceScenario::brokenDocuments()
{
    QFETCH(QString, pointer);
    QFETCH(QJsonValue, value);
    QFETCH(QString, error);

    QJsonObject document = smallScenario();
    document.insert(pointer, value);
    QString message;
    QVERIFY(!Scenario::fromJson(document, m_directory.path(), &message).isValid());
    QVERIFY2(message.startsWith(error), qPrintable(message));
}

void TestDevServiceScenario::unreadableFiles()
{
    QString message;
    QVERIFY(!Scenario::fromFile(m_directory.filePath(QStringLiteral("absent.json")), &message).isValid());
    QVERIFY(message.contains(QLatin1String("absent.json")));
    QVERIFY(!Scenario::fromFile(m_directory.filePath(QStringLiteral("token.pem")), &message).isValid());
    QVERIFY(message.contains(QLatin1String("not a JSON object")));
}

void TestDevServiceScenario::replacingTheScenarioEndsLogins()
{
    DevService service;
    QVERIFY(service.listen(QStringLiteral("127.0.0.1"), 0));
    ServiceClient client(service.url());
    client.setToken(client.login(QStringLiteral("ada@example.com"), QStringLiteral("ada-demo-password")));
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 200);

    QVERIFY(!service.setScenario(Scenario()));
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 200);

    QVERIFY(service.setScenario(Scenario::fromJson(smallScenario(), m_directory.path())));
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 401);
    QVERIFY(service.logins().isEmpty());
    QCOMPARE(client.login(QStringLiteral("ada@example.com"), QStringLiteral("ada-demo-password")),
             QByteArray());
    QVERIFY(!client.login(QStringLiteral("carol"), QStringLiteral("carol-secret")).isEmpty());
}

QTEST_GUILESS_MAIN(TestDevServiceScenario)
#include "tst_devservice_scenario.moc"

// The development service library over real HTTP: every endpoint with its statuses, both ways to
// log in, tokens, the identity chain and resources as a client verifies them, faults on demand,
// the journal, many clients at once, scenarios, and the services it plays.

#include "serviceclient.h"

#include <devservice.h>
#include <faultinjector.h>
#include <tokensigner.h>

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QMutex>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

using namespace vn::test;
using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;
using vn::crypto::PublicKey;
using vn::devservice::DevService;
using vn::devservice::Fault;
using vn::devservice::Scenario;

namespace {

const QString Admin = QStringLiteral("../../admin/faults");
const QString DemoKeys = QStringLiteral(DEVSERVICE_SOURCE_DIR);

// JSON written with single quotes, which read better in C++ string literals.
QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

QJsonObject object(const char *text)
{
    return QJsonDocument::fromJson(json(text)).object();
}

// The members of @p actual that @p expected names.
QJsonObject subset(const QJsonObject &actual, const QJsonObject &expected)
{
    QJsonObject result;
    for (auto it = expected.begin(); it != expected.end(); ++it) {
        result.insert(it.key(), actual.value(it.key()));
    }
    return result;
}

PublicKey publicKeyOf(const QJsonValue &record)
{
    return PublicKey(record.toObject().value("publicKey").toString().toLatin1());
}

// A body of exactly @p size bytes that names no user and tries no login.
QByteArray bodyOfSize(int size)
{
    QByteArray body = "{\"username\": \"";
    return body.append(QByteArray(size - body.size() - 2, 'a')).append("\"}");
}

// Two users, one identity and two resources; carol alone is entitled to the service.
const char *const SmallScenario =
    "{'users': [{'username': 'carol', 'password': 'carol-secret'},"
    "           {'username': 'dave', 'password': 'dave-secret', 'consumer': {'roles': ['ops']}}],"
    " 'identities': [{'id': 'team', 'keyFile': 'key.pem'}], 'tokenKeyFile': 'token.pem',"
    " 'resources': [{'id': 'db', 'type': 'vantro.resource.Database', 'issuer': 'root'},"
    "               {'id': 'svc', 'type': 'vantro.resource.Service', 'users': ['carol'],"
    "                'payload': {'service': 's'}}]}";

} // namespace

class TestDevService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void endpoints_data();
    void endpoints();
    void credentialLogin_data();
    void credentialLogin();
    void sessionRecord();
    void challengeResponse_data();
    void challengeResponse();
    void tokens_data();
    void tokens();
    void refusedWithoutLiveLogin_data();
    void refusedWithoutLiveLogin();
    void chainAndResourcesVerifyUnderTheConfiguredRoot();
    void playedServices_data();
    void playedServices();
    void loginsOfTheCaller();
    void faults_data();
    void faults();
    void droppedConnection();
    void journal();
    void adminInterface();
    void adminAnswersLoopbackOnly_data();
    void adminAnswersLoopbackOnly();
    void clientsLogInAndPollAtOnce();
    void scenarioFile();
    void replacingTheScenario();
    void brokenScenarios_data();
    void brokenScenarios();

private:
    QString runClient(int client);
    // The challenge for the demo device, and its answer: the secret the device key opens.
    QPair<QJsonValue, QByteArray> challenge(ServiceClient &client);
    Reply answer(ServiceClient &client, const QJsonValue &id, const QByteArray &secret);

    DevService m_service;
    PrivateKey m_deviceKey;
    QTemporaryDir m_directory;
    QMutex m_mutex;
    QSet<QString> m_keptLogins;
};

void TestDevService::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
    QVERIFY(m_service.listen("127.0.0.1", 0));
    m_deviceKey = PrivateKey(readFile(DemoKeys + "/keys/demo-device.pem"));
    QVERIFY(m_deviceKey.isValid() && m_directory.isValid());
    QVERIFY(QFile::copy(DemoKeys + "/demo/token-signing.pem", m_directory.filePath("token.pem")));
    QVERIFY(QFile::copy(DemoKeys + "/demo/identity-account.pem", m_directory.filePath("key.pem")));
}

QPair<QJsonValue, QByteArray> TestDevService::challenge(ServiceClient &client)
{
    const Reply reply = client.post(
        "authenticate", {{"authType", "challenge-response"},
                         {"phase", "challenge"},
                         {"fingerprint", QString::fromLatin1(m_deviceKey.fingerPrint().toBase64())}});
    return {reply.object().value("id"),
            PrivateKey(m_deviceKey).decrypt(QByteArray::fromBase64(reply.text("challenge").toLatin1()))};
}

// An undefined @p id sends none.
Reply TestDevService::answer(ServiceClient &client, const QJsonValue &id, const QByteArray &secret)
{
    QJsonObject body{{"authType", "challenge-response"},
                     {"phase", "response"},
                     {"challenge", QString::fromLatin1(secret.toBase64())},
                     {"hostInfo", "kiosk"},
                     {"persistent", true}};
    if (!id.isUndefined()) {
        body.insert(QStringLiteral("challengeId"), id);
    }
    return client.post("authenticate", body);
}

void TestDevService::endpoints_data()
{
    QTest::addColumn<QString>("user");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    // An object: members the answer has; a number: the length of the array answered.
    QTest::addColumn<QJsonValue>("expected");

    auto row = [](const char *name, const QString &user, const char *method, const QString &path, int status,
                  const QJsonValue &expected = {}, const QByteArray &body = {}) {
        QTest::newRow(name) << user << QByteArray(method) << path << body << status << expected;
    };
    const QString none;
    row("consumer", demo::Ada, "GET", "consumer", 200,
        QJsonObject{{"id", demo::AdaConsumerId}, {"name", "Ada Lovelace"}, {"email", demo::Ada}});
    row("ada's resources", demo::Ada, "GET", "entitled", 200, 9);
    row("bob's resources", demo::Bob, "GET", "entitled", 200, 5);
    row("service not entitled", demo::Bob, "GET", "tokens/" + demo::ReportsService, 404);
    row("not a service", demo::Ada, "GET", "tokens/" + demo::Database, 404);
    row("unknown login", demo::Ada, "DELETE", "logins/no-such-login", 404);
    const QJsonObject reset{{"username", demo::Bob}, {"language", "de"}};
    row("password reset", none, "POST", "password-reset", 201, reset, QJsonDocument(reset).toJson());
    row("reset unknown user", none, "POST", "password-reset", 404, {}, json("{'username': 'eve'}"));
    row("reset user a number", none, "POST", "password-reset", 400, {}, json("{'username': 5}"));
    row("reset not JSON", none, "POST", "password-reset", 400, {}, "username=bob");
    row("challenge for an unknown key", none, "POST", "authenticate", 401, {},
        json("{'authType': 'challenge-response', 'phase': 'challenge', 'fingerprint': 'eHh4'}"));
    row("just below the body limit", none, "POST", "password-reset", 404, {}, bodyOfSize(1024 * 1024 - 64));
    row("just above the body limit", none, "POST", "password-reset", 413, {}, bodyOfSize(1024 * 1024 + 1));
    row("GET authenticate", none, "GET", "authenticate", 405);
    row("POST consumer", demo::Ada, "POST", "consumer", 405, {}, "{}");
    row("PUT current login", demo::Ada, "PUT", "logins/current", 405);
    row("unknown path", demo::Ada, "GET", "nothing/here", 404);
    row("outside the API", demo::Ada, "GET", "../../favicon.ico", 404);
    row("path with escapes", demo::Ada, "GET", "consumer%00%2F..", 404);
}

void TestDevService::endpoints()
{
    QFETCH(QString, user);
    QFETCH(QByteArray, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QJsonValue, expected);

    ServiceClient client(m_service.url());
    if (!user.isEmpty()) {
        client.as(user);
    }
    const Reply reply = client.send(method, path, body);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.array().size(), expected.toInt());
    QCOMPARE(subset(reply.object(), expected.toObject()), expected.toObject());
}

void TestDevService::credentialLogin_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("actingUser");

    auto row = [](const char *name, const QByteArray &body, int status,
                  const QString &actingUser = QString()) {
        QTest::newRow(name) << QByteArray(body).replace('\'', '"') << status << actingUser;
    };
    const QByteArray ada =
        "{'authType': 'credentials', 'username': 'ada@example.com', 'password': 'ada-demo-password'";
    const QByteArray bob =
        "{'authType': 'credentials', 'username': 'bob@example.com', 'password': 'bob-demo-password'";
    row("ada", ada + "}", 200, demo::Ada);
    row("name with spaces",
        "{'authType': 'credentials', 'username': ' ada@example.com ', 'password': "
        "'ada-demo-password'}",
        200, demo::Ada);
    row("ada as bob", ada + ", 'impersonate': 'bob@example.com'}", 200, demo::Bob);
    row("bob as ada", bob + ", 'impersonate': 'ada@example.com'}", 403);
    row("ada as nobody", ada + ", 'impersonate': 'eve@example.com'}", 403);
    row("wrong password",
        "{'authType': 'credentials', 'username': 'ada@example.com', 'password': "
        "'bob-demo-password'}",
        401);
    row("unknown user", "{'authType': 'credentials', 'username': 'eve@example.com', 'password': ''}", 401);
    row("user name a number", "{'authType': 'credentials', 'username': 42, 'password': 'x'}", 400);
    row("persistent a string", ada + ", 'persistent': 'yes'}", 400);
    row("impersonate a list", ada + ", 'impersonate': ['bob@example.com']}", 400);
    row("authType a number", "{'authType': 1}", 400);
    row("empty body", "", 400);
    row("truncated JSON", "{'authType': 'credentials',", 400);
    row("JSON string", "'credentials'", 400);
    row("deep nesting", QByteArray(100000, '['), 400);
}

void TestDevService::credentialLogin()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, actingUser);

    ServiceClient client(m_service.url());
    const Reply reply = client.send("POST", "authenticate", body);
    QCOMPARE(reply.status, status);
    client.setToken(reply.text("token").toLatin1());
    QCOMPARE(client.get("consumer").text("email"), actingUser);
}

void TestDevService::sessionRecord()
{
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    ServiceClient client(m_service.url());
    client.setToken(client
                        .post("authenticate", {{"authType", "credentials"},
                                               {"username", demo::Ada},
                                               {"password", demo::AdaPassword},
                                               {"impersonate", demo::Bob},
                                               {"persistent", true},
                                               {"hostInfo", "WS-17@lab [3f2a9c0d]"}})
                        .text("token")
                        .toLatin1());
    const QJsonObject session = client.get("logins/current").object();
    const QJsonObject expected{{"user", demo::Bob},
                               {"authenticatedAs", demo::Ada},
                               {"authType", "credentials"},
                               {"hostInfo", "WS-17@lab [3f2a9c0d]"},
                               {"persistent", true}};
    QCOMPARE(subset(session, expected), expected);
    const QDateTime since = QDateTime::fromString(session.value("since").toString(), Qt::ISODate);
    QVERIFY(since >= before && since <= QDateTime::currentDateTimeUtc().addSecs(1));
}

void TestDevService::challengeResponse_data()
{
    QTest::addColumn<QString>("answered");
    QTest::addColumn<int>("challengeLifetime");
    QTest::addColumn<int>("status");
    // An answer uses the challenge up, right or wrong; a request that names none does not.
    QTest::addColumn<int>("rightAnswerAfterwards");
    QTest::newRow("right answer") << "right" << 60000 << 200 << 401;
    QTest::newRow("wrong answer") << "wrong" << 60000 << 401 << 401;
    QTest::newRow("unknown challenge") << "unknown id" << 60000 << 401 << 200;
    QTest::newRow("no challenge id") << "no id" << 60000 << 400 << 200;
    QTest::newRow("expired") << "right" << 0 << 401 << 401;
}

void TestDevService::challengeResponse()
{
    QFETCH(QString, answered);
    QFETCH(int, challengeLifetime);
    QFETCH(int, status);
    QFETCH(int, rightAnswerAfterwards);

    ServiceClient client(m_service.url());
    m_service.setChallengeLifetime(challengeLifetime);
    const auto [id, secret] = challenge(client);
    m_service.setChallengeLifetime(DevService::DefaultChallengeLifetime);
    QCOMPARE(secret.size(), 32);
    const QHash<QString, QJsonValue> ids{{"unknown id", "x"}, {"no id", QJsonValue::Undefined}};
    QByteArray given = secret;
    given[0] = char(given.at(0) ^ (answered == "wrong" ? 1 : 0));
    const Reply reply = answer(client, ids.value(answered, id), given);
    QCOMPARE(reply.status, status);
    QCOMPARE(answer(client, id, secret).status, rightAnswerAfterwards);
}

void TestDevService::tokens_data()
{
    QTest::addColumn<QString>("path");
    QTest::addColumn<QString>("audience");
    QTest::addColumn<double>("lifetime");
    QTest::newRow("access token") << QString() << "vantro-account" << 900.0;
    QTest::newRow("service token") << "tokens/" + demo::FilesService << "demo-files" << 120.0;
}

void TestDevService::tokens()
{
    QFETCH(QString, path);
    QFETCH(QString, audience);
    QFETCH(double, lifetime);

    m_service.setSettings({900, 120, DevService::DefaultChallengeLifetime});
    ServiceClient client(m_service.url());
    QByteArray token = client.login(demo::Ada, demo::AdaPassword);
    if (!path.isEmpty()) {
        client.setToken(token);
        token = client.get(path).text("token").toLatin1();
    }
    m_service.setSettings({});
    const QList<QByteArray> segments = token.split('.');
    QCOMPARE(segments.size(), 3);
    // The account library decodes with the standard alphabet and needs no padding.
    QVERIFY2(!token.contains('-') && !token.contains('_') && !token.contains('='), token.constData());
    QCOMPARE(QByteArray::fromBase64(segments.at(0)), QByteArray(R"({"alg":"RS256","typ":"JWT"})"));
    const PrivateKey tokenKey(readFile(m_directory.filePath("token.pem")));
    QVERIFY(vn::devservice::TokenSigner::verify(token, tokenKey.publicKey()));
    QVERIFY(!vn::devservice::TokenSigner::verify(token, m_deviceKey.publicKey()));

    const QJsonObject claims = vn::devservice::TokenSigner::readClaims(token);
    const QJsonObject expected{{"iss", QStringLiteral("http://127.0.0.1:%1").arg(m_service.port())},
                               {"sub", demo::AdaConsumerId},
                               {"aud", audience}};
    QCOMPARE(subset(claims, expected), expected);
    QVERIFY(qAbs(claims.value("iat").toDouble() - QDateTime::currentSecsSinceEpoch()) <= 2);
    QCOMPARE(claims.value("exp").toDouble() - claims.value("iat").toDouble(), lifetime);
}

void TestDevService::refusedWithoutLiveLogin_data()
{
    QTest::addColumn<QString>("credential");
    QTest::newRow("no authorization") << QString();
    QTest::newRow("unknown token") << "eyJhbGciOiJSUzI1NiJ9.e30.c2ln";
    QTest::newRow("logged out") << "logged out";
    QTest::newRow("login deleted from elsewhere") << "deleted";
    QTest::newRow("token expired") << "expired";
}

void TestDevService::refusedWithoutLiveLogin()
{
    QFETCH(QString, credential);

    ServiceClient client(m_service.url());
    client.setToken(credential.toLatin1());
    if (!credential.isEmpty() && !credential.startsWith("ey")) {
        m_service.setTokenLifetime(credential == "expired" ? 0 : DevService::DefaultTokenLifetime);
        const QString id = client.as(demo::Ada).get("logins/current").text("id");
        m_service.setTokenLifetime(DevService::DefaultTokenLifetime);
        if (credential == "logged out") {
            QCOMPARE(client.send("DELETE", "logins/current").status, 200);
        } else if (credential == "deleted") {
            QCOMPARE(ServiceClient(m_service.url()).as(demo::Ada).send("DELETE", "logins/" + id).status, 200);
        }
    }
    for (const QString endpoint :
         {"GET logins/current", "GET consumer", "GET account/identity", "GET entitled",
          "GET tokens/e229d538-f031-47f0-8501-7318f794bdf8", "GET logins?format=all_fields",
          "DELETE logins/some-login", "DELETE logins/current"}) {
        const Reply reply = client.send(endpoint.section(' ', 0, 0).toLatin1(), endpoint.section(' ', 1));
        QCOMPARE(QString(endpoint + ' ' + QString::number(reply.status)), QString(endpoint + " 401"));
        QCOMPARE(reply.wwwAuthenticate, QByteArray("Bearer"));
    }
}

void TestDevService::chainAndResourcesVerifyUnderTheConfiguredRoot()
{
    // The configuration the service writes is what a client trusts: check it as the client does.
    const QString path = m_directory.filePath("account.json");
    QVERIFY(m_service.writeConfiguration(path));
    QCOMPARE(QFile::permissions(path) & (QFileDevice::ReadOther | QFileDevice::WriteOther),
             QFileDevice::Permissions(QFileDevice::ReadOther));
    const QJsonObject configuration = QJsonDocument::fromJson(readFile(path)).object();
    QVERIFY(JsonSignature::verify(configuration, PublicKey(QStringLiteral(ACCOUNT_CONFIG_KEY))));
    const QJsonValue root = configuration.value("rootIdentity");
    QString parent = root.toObject().value("uuid").toString();
    QHash<QString, PublicKey> keys{{parent, publicKeyOf(root)}};

    ServiceClient client(m_service.url());
    const QJsonArray chain = client.as(demo::Ada).get("account/identity").array();
    QCOMPARE(chain.size(), 2);
    for (const QJsonValue &record : chain) {
        QVERIFY(JsonSignature::verify(record.toObject(), keys.value(parent)));
        QCOMPARE(record.toObject().value("parent").toString(), parent);
        parent = record.toObject().value("id").toString();
        keys.insert(parent, publicKeyOf(record));
    }
    // Each played service on an origin of its own, named by its signed record.
    QSet<QString> origins{m_service.url().adjusted(QUrl::RemovePath).toString()};
    for (const QJsonValue &resource : client.get("entitled").array()) {
        const QJsonObject envelope = resource.toObject();
        QVERIFY(JsonSignature::verify(envelope, keys.value(envelope.value("issuer").toString())));
        const QJsonObject payload = envelope.value("payload").toObject();
        if (payload.contains("service")) {
            QCOMPARE(QUrl(payload.value("url").toString()),
                     m_service.playedServiceUrl(payload.value("service").toString()));
            origins.insert(QUrl(payload.value("url").toString()).adjusted(QUrl::RemovePath).toString());
        }
    }
    QCOMPARE(origins.size(), 3);
}

void TestDevService::playedServices_data()
{
    QTest::addColumn<QString>("service");
    QTest::addColumn<QString>("bearer");
    QTest::addColumn<QByteArray>("method");
    QTest::addColumn<int>("status");
    // All the members of the answer, and the values of those that are fixed.
    QTest::addColumn<QStringList>("members");
    QTest::addColumn<QJsonObject>("expected");
    const QStringList caller{"expires", "name", "path", "service", "subject"};
    auto row = [&](const char *name, const char *service, const char *bearer, int status, const char *error,
                   const char *method = "GET") {
        QTest::newRow(name) << QString(service) << QString(bearer) << QByteArray(method) << status
                            << (status == 200 ? caller : QStringList{"error"})
                            << (status == 200 ? QJsonObject{{"service", service},
                                                            {"path", "/api/v1/items"},
                                                            {"subject", demo::AdaConsumerId},
                                                            {"name", "Ada Lovelace"}}
                                              : QJsonObject{{"error", error}});
    };
    const char *otherAudience = "the token is not for this service";
    row("files, own token", "demo-files", "demo-files", 200, "");
    row("reports, own token", "demo-reports", "demo-reports", 200, "");
    row("no token", "demo-files", "", 401, "a bearer token is required");
    row("token for the other service", "demo-files", "demo-reports", 401, otherAudience);
    row("token of the account", "demo-reports", "account", 401, otherAudience);
    row("expired", "demo-files", "expired", 401, "the token has expired");
    row("signature of another token", "demo-files", "tampered", 401, "the token's signature does not verify");
    row("POST", "demo-files", "demo-files", 405, "method not allowed", "POST");
}

void TestDevService::playedServices()
{
    QFETCH(QString, service);
    QFETCH(QString, bearer);
    QFETCH(QByteArray, method);
    QFETCH(int, status);
    QFETCH(QStringList, members);
    QFETCH(QJsonObject, expected);

    ServiceClient ada(m_service.url());
    const QByteArray account = ada.login(demo::Ada, demo::AdaPassword);
    ada.setToken(account);
    m_service.setServiceTokenLifetime(bearer == "expired" ? -1 : 60);
    const QByteArray files = ada.get("tokens/" + demo::FilesService).text("token").toLatin1();
    m_service.setServiceTokenLifetime(60);
    const QHash<QString, QByteArray> tokens{
        {"demo-files", files},
        {"expired", files},
        {"demo-reports", ada.get("tokens/" + demo::ReportsService).text("token").toLatin1()},
        {"account", account},
        {"tampered", files.left(files.lastIndexOf('.')) + account.mid(account.lastIndexOf('.'))}};

    ServiceClient client(m_service.playedServiceUrl(service));
    client.setToken(tokens.value(bearer));
    const Reply reply = client.send(method, "items");
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.object().keys(), members);
    QCOMPARE(subset(reply.object(), expected), expected);
    QCOMPARE(reply.wwwAuthenticate, QByteArray(status == 401 ? "Bearer" : ""));
}

void TestDevService::loginsOfTheCaller()
{
    // Logins of earlier test functions would show in the list: start from a fresh scenario.
    QVERIFY(m_service.setScenario(m_service.scenario()));
    ServiceClient first(m_service.url());
    ServiceClient second(m_service.url());
    ServiceClient bob(m_service.url());
    const QString firstId = first.as(demo::Ada).get("logins/current").text("id");
    const QString secondId = second.as(demo::Ada).get("logins/current").text("id");
    const QString bobId = bob.as(demo::Bob).get("logins/current").text("id");
    QStringList ids;
    for (const QJsonValue &login : first.get("logins?format=all_fields").array()) {
        ids.append(login.toObject().value("id").toString());
    }
    QCOMPARE(ids, (QStringList{firstId, secondId}));
    // Another user's login is answered as if it did not exist, and lives on.
    QCOMPARE(first.send("DELETE", "logins/" + bobId).status, 404);
    QCOMPARE(bob.get("consumer").status, 200);
}

void TestDevService::faults_data()
{
    QTest::addColumn<QJsonObject>("fault");
    QTest::addColumn<QStringList>("outcomes");
    QTest::addColumn<int>("remaining");
    auto row = [](const char *name, const char *fault, const QStringList &outcomes, int remaining = 0) {
        QTest::newRow(name) << object(fault) << outcomes << remaining;
    };
    row("status twice", "{'path': 'api/v1/consumer', 'count': 2, 'status': 503}", {"503", "503", "200"});
    row("malformed body", "{'path': 'api/v1/consumer', 'malformedBody': true}", {"200!", "200"});
    row("other body", "{'path': 'api/v1/consumer', 'body': '[1]'}", {"200", "200"});
    row("no content", "{'path': 'api/v1/consumer', 'status': 204}", {"204!", "200", "200"});
    row("delay", "{'path': 'api/v1/consumer', 'status': 503, 'delay': 300}", {"503", "200"});
    row("leading slash", "{'path': '/api/v1/consumer', 'status': 502}", {"502", "200"});
    row("path prefix", "{'path': 'api/v1/*', 'status': 429}", {"429", "200"});
    row("other path", "{'path': 'api/v1/entitled', 'status': 500}", {"200", "200"}, 1);
    row("other method", "{'path': 'api/v1/consumer', 'status': 500, 'method': 'post'}", {"200", "200"}, 1);
}

void TestDevService::faults()
{
    QFETCH(QJsonObject, fault);
    QFETCH(QStringList, outcomes);
    QFETCH(int, remaining);

    ServiceClient client(m_service.url());
    client.as(demo::Bob);
    m_service.clearFaults();
    // As written, so that adding the fault is what drops the leading "/" and reads the method.
    Fault added = Fault::fromJson(fault);
    added.path = fault.value("path").toString();
    added.method = fault.value("method").toString().toLatin1();
    m_service.addFault(added);
    QElapsedTimer timer;
    timer.start();
    QStringList seen{client.get("consumer").outcome()};
    QVERIFY(timer.elapsed() >= added.delay);
    while (seen.size() < outcomes.size()) {
        seen.append(client.get("consumer").outcome());
    }
    QCOMPARE(seen, outcomes);
    // A fault that never matched is still waiting; one that did is used up.
    QCOMPARE(m_service.faults().size(), remaining);
}

void TestDevService::droppedConnection()
{
    ServiceClient client(m_service.url());
    client.as(demo::Bob);
    m_service.clearFaults();
    m_service.addFault(Fault::fromJson({{"path", "api/v1/logins"}, {"count", 2}, {"dropConnection", true}}));
    // Qt re-sends a request once when its connection closes before any answer, so one client
    // request may use up both drops; the service drops exactly two requests whatever the client does.
    QCOMPARE(client.get("logins").outcome(), QStringLiteral("dropped"));
    QStringList seen;
    while (seen.size() < 2 && !seen.contains("200")) {
        seen.append(client.get("logins").outcome());
    }
    QCOMPARE(seen.constLast(), QStringLiteral("200"));
    QVERIFY(m_service.faults().isEmpty());
}

void TestDevService::journal()
{
    ServiceClient client(m_service.url());
    const QByteArray token = client.login(demo::Ada, demo::AdaPassword);
    client.setToken(token);
    const QByteArray serviceToken = client.get("tokens/" + demo::FilesService).text("token").toLatin1();
    m_service.clearJournal();
    client.get("logins?format=all_fields");
    client.send("POST", "password-reset", "{\"username\": \"bob@example.com\"}");
    ServiceClient files(m_service.playedServiceUrl("demo-files"));
    files.setToken(serviceToken);
    files.get("items");

    const QList<DevService::ReceivedRequest> journal = m_service.journal();
    QCOMPARE(journal.size(), 3);
    QCOMPARE(QByteArray(journal.at(0).method + ' ' + journal.at(0).path + '?' + journal.at(0).query),
             QByteArray("GET /api/v1/logins?format=all_fields"));
    QCOMPARE(journal.at(0).headers.value("authorization"), "Bearer " + token);
    QCOMPARE(journal.at(1).headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(journal.at(1).body, QByteArray("{\"username\": \"bob@example.com\"}"));
    QCOMPARE(journal.at(2).service + ' ' + QString::fromLatin1(journal.at(2).path),
             QStringLiteral("demo-files /api/v1/items"));
    QCOMPARE(journal.at(1).service, QString());
    // The oldest go first.
    m_service.setJournalLimit(1);
    QCOMPARE(m_service.journal().constFirst().service, QStringLiteral("demo-files"));
    m_service.setJournalLimit(DevService::DefaultJournalLimit);
}

void TestDevService::adminInterface()
{
    ServiceClient client(m_service.url());
    client.as(demo::Bob);
    m_service.clearFaults();
    QCOMPARE(
        client.send("POST", Admin, json("{'path': 'api/v1/entitled', 'status': 502, 'count': 2}")).status,
        201);
    const Reply added = client.send("POST", Admin,
                                    json("[{'path': 'api/v1/consumer', 'malformedBody': true}, {'path': "
                                         "'/api/v1/logins/*', 'method': 'delete', 'count': 3}]"));
    QCOMPARE(added.array().size(), 3);
    QCOMPARE(added.array().at(2).toObject(),
             object("{'path': 'api/v1/logins/*', 'method': 'DELETE', 'count': 3,"
                    " 'status': 0, 'delay': 0, 'malformedBody': false,"
                    " 'dropConnection': false}"));
    // Faults that do not read are refused, all of them.
    for (const char *refused : {"{'status': 500}", "[{'path': 'api/v1/consumer'}, {'path': 5}]",
                                "{'path': 'api/v1/consumer', 'status': 42}", "path=api/v1/consumer"}) {
        QCOMPARE(client.send("POST", Admin, json(refused)).status, 400);
    }
    QCOMPARE(client.send("PUT", Admin).status, 405);
    QCOMPARE(client.get("entitled").outcome(), QStringLiteral("502"));
    QCOMPARE(client.get("consumer").outcome(), QStringLiteral("200!"));
    const QJsonArray remaining = client.get(Admin).array();
    QCOMPARE(remaining.size(), 2);
    QCOMPARE(remaining.at(0).toObject().value("count").toInt(), 1);
    QCOMPARE(client.send("DELETE", Admin).array(), QJsonArray());
    QCOMPARE(client.get("entitled").outcome(), QStringLiteral("200"));
}

void TestDevService::adminAnswersLoopbackOnly_data()
{
    QTest::addColumn<QString>("peer");
    QTest::addColumn<int>("status");
    QTest::newRow("IPv4 loopback") << "127.0.0.1" << 201;
    QTest::newRow("IPv6 loopback") << "::1" << 201;
    QTest::newRow("IPv4 loopback as IPv6") << "::ffff:127.0.0.1" << 201;
    QTest::newRow("another machine") << "192.0.2.7" << 403;
    QTest::newRow("another machine as IPv6") << "::ffff:192.0.2.7" << 403;
}

void TestDevService::adminAnswersLoopbackOnly()
{
    QFETCH(QString, peer);
    QFETCH(int, status);

    vn::devservice::FaultInjector injector;
    QCOMPARE(injector.serveAdmin("POST", json("{'path': 'api/v1/consumer'}"), peer.toStdString()).status,
             status);
    QCOMPARE(injector.pending().size(), status == 201 ? 1 : 0);
}

// One client's rounds: log in (every third round with the device key), poll, and every other round
// log out. The first thing that went wrong, or nothing.
QString TestDevService::runClient(int client)
{
    ServiceClient service(m_service.url());
    for (int round = 0; round < 10; ++round) {
        const bool device = (client + round) % 3 == 0;
        const QString user = device || client % 2 == 0 ? demo::Ada : demo::Bob;
        const QString where = QStringLiteral("client %1 round %2: ").arg(client).arg(round);
        service.setToken({});
        if (device) {
            const auto [id, secret] = challenge(service);
            service.setToken(answer(service, id, secret).text("token").toLatin1());
        } else {
            service.as(user);
        }
        QList<Reply> replies;
        for (const char *path : {"logins/current", "consumer", "entitled", "account/identity", "logins"}) {
            replies.append(service.get(path));
            if (replies.constLast().status != 200) {
                return where + path + " failed";
            }
        }
        if (replies.at(1).text("email") != user ||
            replies.at(2).array().size() != (user == demo::Ada ? 9 : 5)) {
            return where + "another account's data";
        }
        if (round % 2 == 0) {
            QMutexLocker locker(&m_mutex);
            m_keptLogins.insert(replies.at(0).text("id"));
        } else if (service.send("DELETE", "logins/current").status != 200 ||
                   service.get("consumer").status != 401) {
            return where + "logout failed";
        }
    }
    return QString();
}

void TestDevService::clientsLogInAndPollAtOnce()
{
    QVERIFY(m_service.setScenario(m_service.scenario()));
    QStringList failures;
    std::vector<std::unique_ptr<QThread>> threads;
    for (int client = 0; client < 8; ++client) {
        threads.emplace_back(QThread::create([this, client, &failures] {
            const QString failure = runClient(client);
            QMutexLocker locker(&m_mutex);
            failures.append(failure);
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads) {
        QVERIFY(thread->wait(120000));
    }
    failures.removeAll(QString());
    QCOMPARE(failures, QStringList());
    QSet<QString> live;
    for (const QJsonValue &login : m_service.logins()) {
        live.insert(login.toObject().value("id").toString());
    }
    QCOMPARE(live, m_keptLogins);
    QCOMPARE(live.size(), 40);
}

// The demo is itself a scenario file; this one leaves out what can be left out.
void TestDevService::scenarioFile()
{
    const QString path = m_directory.filePath("small.json");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(json(SmallScenario)) > 0);
    file.close();
    QString error;
    const Scenario scenario = Scenario::fromFile(path, &error);
    QVERIFY2(scenario.isValid(), qPrintable(error));
    // A consumer identifier left out is derived from the user name: the same on every start.
    QCOMPARE(scenario.users().at(0).consumer,
             object("{'id': 'f3de4a43-9e7b-5008-b232-b91d0c74c789', 'name': 'carol', 'email': 'carol',"
                    " 'permissions': [], 'roles': []}"));

    // Keys that are not named are generated once per process.
    QJsonObject generated = object(SmallScenario);
    generated.insert("identities", QJsonArray{object("{'id': 'team', 'bits': 2048}")});
    generated.remove(QStringLiteral("tokenKeyFile"));
    const Scenario first = Scenario::fromJson(generated, m_directory.path());
    const Scenario second = Scenario::fromJson(generated, m_directory.path());
    QCOMPARE(first.identities().at(0).privateKey.bits(), 2048);
    QCOMPARE(second.identities().at(0).privateKey.toPEM(), first.identities().at(0).privateKey.toPEM());
    QCOMPARE(second.tokenKey().toPEM(), first.tokenKey().toPEM());
    QVERIFY(first.tokenKey().toPEM() != first.identities().at(0).privateKey.toPEM());
}

void TestDevService::replacingTheScenario()
{
    DevService service;
    QVERIFY(service.listen("127.0.0.1", 0));
    ServiceClient client(service.url());
    client.as(demo::Ada);
    // An invalid scenario changes nothing.
    QVERIFY(!service.setScenario(Scenario()));
    QCOMPARE(client.get("consumer").status, 200);
    QVERIFY(!service.playedServiceUrl("demo-files").isEmpty());

    // A new one ends the logins, and the played services follow it.
    QVERIFY(service.setScenario(Scenario::fromJson(object(SmallScenario), m_directory.path())));
    QCOMPARE(client.get("consumer").status, 401);
    QVERIFY(service.playedServiceUrl("demo-files").isEmpty() && !service.playedServiceUrl("s").isEmpty());
    QCOMPARE(client.login(demo::Ada, demo::AdaPassword), QByteArray());
    client.setToken(client.login("carol", "carol-secret"));
    QCOMPARE(client.get("tokens/svc").status, 200);
    const QJsonArray chain = client.get("account/identity").array();
    QCOMPARE(chain.size(), 1);
    QCOMPARE(chain.at(0).toObject().value("parent").toString(), QStringLiteral("root"));
    ServiceClient dave(service.url());
    dave.setToken(dave.login("dave", "dave-secret"));
    const QJsonArray resources = dave.get("entitled").array();
    QCOMPARE(resources.size(), 1);
    // Issued by the root: signed with the development root key.
    QVERIFY(JsonSignature::verify(resources.at(0).toObject(),
                                  publicKeyOf(service.configuration().value("rootIdentity"))));
}

void TestDevService::brokenScenarios_data()
{
    // Members that replace those of the small scenario, and the start of the error message.
    QTest::addColumn<QByteArray>("members");
    QTest::addColumn<QString>("error");
    auto row = [](const char *name, const char *members, const char *error) {
        QTest::newRow(name) << json(members) << QString::fromLatin1(error);
    };
    row("user twice", "{'users': [{'username': 'x'}, {'username': 'x'}]}", "users[1].username:");
    row("permission zero", "{'users': [{'username': 'x', 'consumer': {'permissions': [0]}}]}",
        "users[0].consumer.permissions:");
    row("device of nobody", "{'devices': [{'user': 'eve', 'keyFile': 'key.pem'}]}", "devices[0].user:");
    row("device with two keys", "{'devices': [{'user': 'dave', 'keyFile': 'key.pem', 'publicKey': 'x'}]}",
        "devices[0]:");
    row("identity named root", "{'identities': [{'id': 'root', 'keyFile': 'key.pem'}]}", "identities[0].id:");
    row("identity key too small", "{'identities': [{'id': 'x', 'bits': 512}]}", "identities[0].bits:");
    row("resource issuer unknown", "{'resources': [{'id': 'r', 'type': 't', 'issuer': 'x'}]}",
        "resources[0].issuer:");
    row("resource for nobody", "{'resources': [{'id': 'r', 'type': 't', 'users': ['eve']}]}",
        "resources[0].users:");
    row("played service without a name", "{'resources': [{'id': 'r', 'type': 'vantro.resource.Service'}]}",
        "resources[0].payload.service:");
}

void TestDevService::brokenScenarios()
{
    QFETCH(QByteArray, members);
    QFETCH(QString, error);

    QJsonObject document = object(SmallScenario);
    const QJsonObject replaced = QJsonDocument::fromJson(members).object();
    for (auto it = replaced.begin(); it != replaced.end(); ++it) {
        document.insert(it.key(), it.value());
    }
    QString message;
    QVERIFY(!Scenario::fromJson(document, m_directory.path(), &message).isValid());
    QVERIFY2(message.startsWith(error), qPrintable(message));
}

QTEST_GUILESS_MAIN(TestDevService)
#include "tst_devservice.moc"

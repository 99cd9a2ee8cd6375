// The development service library over real HTTP: every endpoint with its statuses, both ways to
// log in, the identity chain and resources as a client verifies them, bad input, faults on demand,
// the journal, many clients at once, scenarios, and the services it plays.

#include "serviceclient.h"

#include <devservice.h>
#include <tokensigner.h>

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>

#include <QElapsedTimer>
#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QMutex>
#include <QNetworkInterface>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <memory>

using namespace vn::test;
using vn::crypto::JsonSignature;
using vn::crypto::PrivateKey;
using vn::crypto::PublicKey;
using vn::devservice::DevService;
using vn::devservice::Fault;
using vn::devservice::Scenario;

Q_DECLARE_METATYPE(vn::devservice::Fault)

namespace {

const QString FilesService = QStringLiteral("e229d538-f031-47f0-8501-7318f794bdf8");
const QString ReportsService = QStringLiteral("5a0e8c1e-6f3b-4d2a-9c47-8b1d2e3f4a5b");
const QString Admin = QStringLiteral("../../admin/faults");

// JSON written with single quotes, which read better in C++ string literals.
QByteArray json(const char *text)
{
    return QByteArray(text).replace('\'', '"');
}

QJsonObject object(const char *text)
{
    return QJsonDocument::fromJson(json(text)).object();
}

QByteArray json(const QJsonValue &value)
{
    return value.isArray() ? QJsonDocument(value.toArray()).toJson()
                           : QJsonDocument(value.toObject()).toJson();
}

// @p object with the @p members added or replaced.
QJsonObject merged(QJsonObject object, const QJsonObject &members)
{
    for (auto it = members.begin(); it != members.end(); ++it) {
        object.insert(it.key(), it.value());
    }
    return object;
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
    return PublicKey(text(record, "publicKey").toLatin1());
}

// "503": that status with a JSON body; "200!": with a body that is not JSON; "dropped": no answer.
QString outcome(const Reply &reply)
{
    if (reply.status == 0) {
        return reply.error != QNetworkReply::NoError ? QStringLiteral("dropped") : QStringLiteral("nothing");
    }
    return QString::number(reply.status) + (reply.parsed ? "" : "!");
}

// Asks for a challenge for @p fingerprint; the answer, and the challenge as @p key opens it.
std::pair<Reply, QByteArray> challenge(ServiceClient &client, const PrivateKey &key,
                                       const QByteArray &fingerprint)
{
    const Reply reply =
        client.post("authenticate", {{"authType", "challenge-response"},
                                     {"phase", "challenge"},
                                     {"fingerprint", QString::fromLatin1(fingerprint.toBase64())}});
    return {reply, key.decrypt(QByteArray::fromBase64(reply.text("challenge").toLatin1()))};
}

// An undefined @p id sends none.
Reply answer(ServiceClient &client, const QJsonValue &id, const QByteArray &secret)
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

// A body of exactly @p size bytes that names no user and tries no login.
QByteArray bodyOfSize(int size)
{
    QByteArray body = "{\"username\": \"";
    return body.append(QByteArray(size - body.size() - 2, 'a')).append("\"}");
}

// Two users, one identity and two resources; carol alone is entitled to the service.
QJsonObject smallScenario()
{
    return object(
        "{'users': [{'username': 'carol', 'password': 'carol-secret'},"
        "           {'username': 'dave', 'password': 'dave-secret', 'consumer': {'roles': ['ops']}}],"
        " 'identities': [{'id': 'team', 'keyFile': 'key.pem'}], 'tokenKeyFile': 'token.pem',"
        " 'resources': [{'id': 'db', 'type': 'vantro.resource.Database', 'issuer': 'root'},"
        "               {'id': 'svc', 'type': 'vantro.resource.Service', 'users': ['carol'],"
        "                'payload': {'service': 's'}}]}");
}

} // namespace

class TestDevService : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void endpoints_data();
    void endpoints();
    void authenticate_data();
    void authenticate();
    void challengeResponse_data();
    void challengeResponse();
    void tokens();
    void refusedWithoutLiveLogin_data();
    void refusedWithoutLiveLogin();
    void chainAndResourcesVerifyUnderTheConfiguredRoot();
    void playedServices_data();
    void playedServices();
    void logins();
    void faults_data();
    void faults();
    void droppedConnectionAndJournal();
    void adminInterface();
    void adminAnswersLoopbackOnly();
    void clientsLogInAndPollAtOnce();
    void scenarios();
    void brokenScenarios_data();
    void brokenScenarios();

private:
    QString runClient(int client);

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
    m_deviceKey = PrivateKey(readFile(QStringLiteral(DEVSERVICE_SOURCE_DIR "/keys/demo-device.pem")));
    QVERIFY(m_deviceKey.isValid() && m_directory.isValid());
    QVERIFY(QFile::copy(QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo/token-signing.pem"),
                        m_directory.filePath("token.pem")));
    QVERIFY(QFile::copy(QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo/identity-account.pem"),
                        m_directory.filePath("key.pem")));
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
    row("consumer", Ada, "GET", "consumer", 200, m_service.scenario().users().at(0).consumer);
    row("bob's resources", Bob, "GET", "entitled", 200, 5);
    row("service not entitled", Bob, "GET", "tokens/5a0e8c1e-6f3b-4d2a-9c47-8b1d2e3f4a5b", 404);
    row("not a service", Ada, "GET", "tokens/d28dbfe9-09a6-4d70-b66e-2645d0940d90", 404);
    row("unknown service", Ada, "GET", "tokens/00000000-0000-4000-8000-000000000000", 404);
    row("unknown login", Ada, "DELETE", "logins/no-such-login", 404);
    const QJsonObject reset{{"username", Bob}, {"language", "de"}};
    row("password reset", none, "POST", "password-reset", 201, reset, json(reset));
    row("reset unknown user", none, "POST", "password-reset", 404, {}, json("{'username': 'eve'}"));
    row("reset user a number", none, "POST", "password-reset", 400, {}, json("{'username': 5}"));
    row("reset not JSON", none, "POST", "password-reset", 400, {}, "username=bob");
    const int limit = int(DevService::DefaultMaximumBodySize);
    row("just below the body limit", none, "POST", "password-reset", 404, {}, bodyOfSize(limit - 64));
    row("just above the body limit", none, "POST", "password-reset", 413, {}, bodyOfSize(limit + 1));
    row("far above the body limit", none, "POST", "authenticate", 413, {}, bodyOfSize(limit * 8));
    row("GET authenticate", none, "GET", "authenticate", 405);
    row("POST consumer", Ada, "POST", "consumer", 405, {}, "{}");
    row("PUT current login", Ada, "PUT", "logins/current", 405);
    row("unknown path", Ada, "GET", "nothing/here", 404);
    row("outside the API", Ada, "GET", "../../favicon.ico", 404);
    row("path with escapes", Ada, "GET", "consumer%00%2F..", 404);
    // Faults that do not read are refused, all of them.
    row("fault without path", none, "POST", Admin, 400, {}, json("{'status': 500}"));
    row("fault status out of range", none, "POST", Admin, 400, {},
        json("{'path': 'api/v1/consumer', 'status': 42}"));
    row("one bad fault of two", none, "POST", Admin, 400, {},
        json("[{'path': 'api/v1/consumer'}, {'path': 5}]"));
    row("faults not JSON", none, "POST", Admin, 400, {}, "path=api/v1/consumer");
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
        client.as(user, user == Ada ? AdaPassword : BobPassword);
    }
    const Reply reply = client.send(method, path, body);
    QCOMPARE(reply.status, status);
    // Every answer, failures included, is a JSON document; but 413, which the HTTP layer gives
    // before the body is read.
    QVERIFY(reply.parsed || status == 413);
    QCOMPARE(reply.array().size(), expected.toInt());
    QCOMPARE(subset(reply.object(), expected.toObject()), expected.toObject());
    QVERIFY(m_service.faults().isEmpty());
    QCOMPARE(ServiceClient(m_service.url()).as(Bob, BobPassword).get("consumer").status, 200);
}

void TestDevService::authenticate_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("actingUser");

    auto body = [](const QJsonObject &members, const QString &user = Ada) {
        const QString password = user == Ada ? AdaPassword : BobPassword;
        return json(
            merged({{"authType", "credentials"}, {"username", user}, {"password", password}}, members));
    };
    QTest::newRow("ada") << body({{"persistent", true}, {"hostInfo", "WS-17@lab [3f2a9c0d]"}}) << 200 << Ada;
    QTest::newRow("ada as bob") << body({{"impersonate", Bob}}) << 200 << Bob;
    QTest::newRow("bob as ada") << body({{"impersonate", Ada}}, Bob) << 403 << QString();
    QTest::newRow("ada as nobody") << body({{"impersonate", "eve@example.com"}}) << 403 << QString();
    QTest::newRow("wrong password") << body({{"password", BobPassword}}) << 401 << QString();
    QTest::newRow("unknown user") << body({{"username", "eve@example.com"}}) << 401 << QString();
    QTest::newRow("user name a number") << body({{"username", 42}}) << 400 << QString();
    QTest::newRow("persistent a string") << body({{"persistent", "yes"}}) << 400 << QString();
    QTest::newRow("impersonate a list") << body({{"impersonate", QJsonArray{Bob}}}) << 400 << QString();
    QTest::newRow("authType a number") << body({{"authType", 1}}) << 400 << QString();
    QTest::newRow("empty body") << QByteArray() << 400 << QString();
    QTest::newRow("truncated JSON") << QByteArray("{\"authType\": \"credentials\",") << 400 << QString();
    QTest::newRow("JSON string") << QByteArray("\"credentials\"") << 400 << QString();
    QTest::newRow("deep nesting") << QByteArray(100000, '[') << 400 << QString();
}

void TestDevService::authenticate()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, actingUser);

    ServiceClient client(m_service.url());
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    const Reply reply = client.send("POST", "authenticate", body);
    QCOMPARE(reply.status, status);
    client.setToken(reply.text("token").toLatin1());
    QCOMPARE(client.get("consumer").text("email"), actingUser);
    if (status == 200) {
        const QJsonObject sent = QJsonDocument::fromJson(body).object();
        const QJsonObject session = client.get("logins/current").object();
        QCOMPARE(text(session, "hostInfo"), text(sent, "hostInfo"));
        QCOMPARE(session.value("persistent"), QJsonValue(sent.value("persistent").toBool()));
        const QDateTime since = QDateTime::fromString(text(session, "since"), Qt::ISODate);
        QVERIFY(since >= before && since <= QDateTime::currentDateTimeUtc().addSecs(1));
    }
}

void TestDevService::challengeResponse_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<int>("status");
    // An answer uses the challenge up, right or wrong; a request that names none does not.
    QTest::addColumn<int>("rightAnswerAfterwards");
    QTest::newRow("right answer") << QString() << 200 << 401;
    QTest::newRow("unknown key") << "unknown key" << 401 << 0;
    QTest::newRow("wrong answer") << "wrong answer" << 401 << 401;
    QTest::newRow("unknown challenge") << "unknown challenge" << 401 << 200;
    QTest::newRow("expired") << "expired" << 401 << 401;
    QTest::newRow("no challenge id") << "no challenge id" << 400 << 200;
}

void TestDevService::challengeResponse()
{
    QFETCH(QString, failure);
    QFETCH(int, status);
    QFETCH(int, rightAnswerAfterwards);

    ServiceClient client(m_service.url());
    m_service.setChallengeLifetime(failure == "expired" ? 50 : DevService::DefaultChallengeLifetime);
    const bool unknownKey = failure == "unknown key";
    const auto [issued, secret] =
        challenge(client, m_deviceKey, unknownKey ? QByteArray(32, 'x') : m_deviceKey.fingerPrint());
    QCOMPARE(issued.status, unknownKey ? status : 200);
    if (unknownKey) {
        return;
    }
    QCOMPARE(secret.size(), 32);
    // Only the device's own key opens the challenge.
    const PrivateKey other(readFile(m_directory.filePath("token.pem")));
    QVERIFY(other.decrypt(QByteArray::fromBase64(issued.text("challenge").toLatin1())).isEmpty());

    const QJsonValue id = issued.object().value("id");
    QByteArray given = secret;
    given[0] = char(given.at(0) ^ (failure == "wrong answer" ? 1 : 0));
    if (failure == "expired") {
        QTest::qWait(100);
    }
    const Reply reply = answer(client,
                               failure == "unknown challenge" ? QJsonValue("x")
                               : failure == "no challenge id" ? QJsonValue(QJsonValue::Undefined)
                                                              : id,
                               given);
    QCOMPARE(reply.status, status);
    client.setToken(reply.text("token").toLatin1());
    const QJsonObject expected{
        {"hostInfo", "kiosk"}, {"persistent", true}, {"authType", "challenge-response"}};
    QCOMPARE(subset(client.get("logins/current").object(), expected) == expected, status == 200);
    QCOMPARE(client.get("consumer").text("email"), status == 200 ? Ada : QString());
    QCOMPARE(answer(client, id, secret).status, rightAnswerAfterwards);
}

void TestDevService::tokens()
{
    m_service.setTokenLifetime(900);
    m_service.setServiceTokenLifetime(120);
    ServiceClient client(m_service.url());
    const QByteArray token = client.login(Ada, AdaPassword);
    m_service.setTokenLifetime(DevService::DefaultTokenLifetime);
    const QList<QByteArray> segments = token.split('.');
    QCOMPARE(segments.size(), 3);
    // The account library decodes with the standard alphabet and needs no padding.
    QVERIFY2(!token.contains('-') && !token.contains('_') && !token.contains('='), token.constData());
    QCOMPARE(QJsonDocument::fromJson(QByteArray::fromBase64(segments.at(0))).object(),
             (QJsonObject{{"alg", "RS256"}, {"typ", "JWT"}}));
    QVERIFY(vn::devservice::TokenSigner::verify(token, m_service.scenario().tokenKey().publicKey()));
    QVERIFY(!vn::devservice::TokenSigner::verify(token, m_deviceKey.publicKey()));

    client.setToken(token);
    const QByteArray serviceToken = client.get("tokens/" + FilesService).text("token").toLatin1();
    const QString issuer = QStringLiteral("http://127.0.0.1:%1").arg(m_service.port());
    const QString ada = client.get("consumer").text("id");
    for (const auto &[claims, audience, lifetime] :
         {std::make_tuple(tokenClaims(token), "vantro-account", 900),
          std::make_tuple(tokenClaims(serviceToken), "demo-files", 120)}) {
        const QJsonObject expected{{"iss", issuer}, {"sub", ada}, {"aud", audience}};
        QCOMPARE(subset(claims, expected), expected);
        const double issued = claims.value("iat").toDouble();
        QVERIFY(qAbs(issued - QDateTime::currentSecsSinceEpoch()) <= 2);
        QCOMPARE(claims.value("exp").toDouble() - issued, double(lifetime));
    }
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
        const QString id = client.as(Ada, AdaPassword).get("logins/current").text("id");
        m_service.setTokenLifetime(DevService::DefaultTokenLifetime);
        if (credential == "logged out") {
            QCOMPARE(client.send("DELETE", "logins/current").status, 200);
        } else if (credential == "deleted") {
            ServiceClient other(m_service.url());
            QCOMPARE(other.as(Ada, AdaPassword).send("DELETE", "logins/" + id).status, 200);
        }
    }
    const QStringList endpoints{"GET logins/current",         "GET consumer",
                                "GET account/identity",       "GET entitled",
                                "GET tokens/" + FilesService, "GET logins?format=all_fields",
                                "DELETE logins/some-login",   "DELETE logins/current"};
    for (const QString &endpoint : endpoints) {
        const int status =
            client.send(endpoint.section(' ', 0, 0).toLatin1(), endpoint.section(' ', 1)).status;
        QVERIFY2(status == 401, qPrintable(endpoint + ": " + QString::number(status)));
    }
}

void TestDevService::chainAndResourcesVerifyUnderTheConfiguredRoot()
{
    // The configuration the service writes is what a client trusts: check it as the client does.
    const QString path = m_directory.filePath("account.json");
    QVERIFY(m_service.writeConfiguration(path));
    const QByteArray content = readFile(path);
    QVERIFY(content.size() < 4096);
    QCOMPARE(QFile::permissions(path) & (QFileDevice::ReadOther | QFileDevice::WriteOther),
             QFileDevice::Permissions(QFileDevice::ReadOther));
    const QJsonObject configuration = QJsonDocument::fromJson(content).object();
    QVERIFY(JsonSignature::verify(configuration, PublicKey(QStringLiteral(ACCOUNT_CONFIG_KEY))));
    const QJsonValue root = configuration.value("rootIdentity");
    QString parent = text(root, "uuid");
    QHash<QString, PublicKey> keys{{parent, publicKeyOf(root)}};

    ServiceClient client(m_service.url());
    const QJsonArray chain = client.as(Ada, AdaPassword).get("account/identity").array();
    QCOMPARE(chain.size(), 2);
    for (const QJsonValue &record : chain) {
        QVERIFY2(JsonSignature::verify(record.toObject(), keys.value(parent)),
                 qPrintable(text(record, "id")));
        QCOMPARE(text(record, "parent"), parent);
        parent = text(record, "id");
        keys.insert(parent, publicKeyOf(record));
    }
    // A record signed by anything but its parent does not verify.
    QVERIFY(!JsonSignature::verify(chain.at(1).toObject(), publicKeyOf(root)));

    const QJsonArray resources = client.get("entitled").array();
    QCOMPARE(resources.size(), 9);
    // Each played service on an origin of its own, named by its signed record.
    QSet<QString> origins{m_service.url().adjusted(QUrl::RemovePath).toString()};
    for (const QJsonValue &resource : resources) {
        const QString issuer = text(resource, "issuer");
        QVERIFY2(keys.contains(issuer) && JsonSignature::verify(resource.toObject(), keys.value(issuer)),
                 qPrintable(text(resource, "id")));
        QVERIFY(keys.contains(text(resource, "owner")));
        const QJsonValue payload = resource.toObject().value("payload");
        if (text(resource, "type") == "vantro.resource.Service") {
            QCOMPARE(QUrl(text(payload, "url")), m_service.playedServiceUrl(text(payload, "service")));
            origins.insert(QUrl(text(payload, "url")).adjusted(QUrl::RemovePath).toString());
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
    QTest::addColumn<QString>("error");
    auto row = [](const char *name, const char *service, const char *bearer, int status,
                  const char *error = "", const char *method = "GET") {
        QTest::newRow(name) << QString(service) << QString(bearer) << QByteArray(method) << status
                            << QString(error);
    };
    const char *otherAudience = "the token is not for this service";
    row("files, own token", "demo-files", "demo-files", 200);
    row("reports, own token", "demo-reports", "demo-reports", 200);
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
    QFETCH(QString, error);

    ServiceClient ada(m_service.url());
    const QByteArray account = ada.login(Ada, AdaPassword);
    ada.setToken(account);
    m_service.setServiceTokenLifetime(bearer == "expired" ? -1 : 60);
    const QByteArray files = ada.get("tokens/" + FilesService).text("token").toLatin1();
    m_service.setServiceTokenLifetime(60);
    const QHash<QString, QByteArray> tokens{
        {"demo-files", files},
        {"expired", files},
        {"demo-reports", ada.get("tokens/" + ReportsService).text("token").toLatin1()},
        {"account", account},
        {"tampered", files.left(files.lastIndexOf('.')) + account.mid(account.lastIndexOf('.'))}};
    const QByteArray token = tokens.value(bearer);

    ServiceClient client(m_service.playedServiceUrl(service));
    client.setToken(token);
    m_service.clearJournal();
    const Reply reply = client.send(method, "items");
    QCOMPARE(reply.status, status);
    const QString expires =
        QDateTime::fromSecsSinceEpoch(qint64(tokenClaims(token).value("exp").toDouble()), Qt::UTC)
            .toString(Qt::ISODate);
    const QJsonObject caller{{"service", service},
                             {"path", "/api/v1/items"},
                             {"subject", "d99d9154-7a9c-4694-a1c7-0e2359e87f70"},
                             {"name", "Ada Lovelace"},
                             {"expires", expires}};
    // Says who called, or what was wrong, but never the token.
    QCOMPARE(reply.object(), status == 200 ? caller : QJsonObject({{"error", error}}));
    QCOMPARE(reply.wwwAuthenticate, QByteArray(status == 401 ? "Bearer" : ""));
    const QList<DevService::ReceivedRequest> journal = m_service.journal();
    QCOMPARE(journal.size(), 1);
    QCOMPARE(journal.at(0).service, service);
    QCOMPARE(journal.at(0).headers.value("authorization"),
             token.isEmpty() ? QByteArray() : "Bearer " + token);
}

void TestDevService::logins()
{
    // Logins of earlier test functions would show in the list: start from a fresh scenario.
    QVERIFY(m_service.setScenario(m_service.scenario()));
    ServiceClient first(m_service.url());
    ServiceClient second(m_service.url());
    ServiceClient bob(m_service.url());
    const QString firstId = first.as(Ada, AdaPassword).get("logins/current").text("id");
    const QString secondId = second.as(Ada, AdaPassword).get("logins/current").text("id");
    const QString bobId = bob.as(Bob, BobPassword).get("logins/current").text("id");
    QStringList ids;
    for (const QJsonValue &login : first.get("logins?format=all_fields").array()) {
        ids.append(text(login, "id"));
    }
    QCOMPARE(ids, (QStringList{firstId, secondId}));

    // Another user's login is answered as if it did not exist, and lives on.
    QCOMPARE(first.send("DELETE", "logins/" + bobId).status, 404);
    QCOMPARE(bob.get("consumer").status, 200);
}

void TestDevService::faults_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QStringList>("outcomes");
    QTest::addColumn<int>("remaining");

    auto row = [](const char *name, const QJsonObject &fault, const QStringList &outcomes, int remaining) {
        // As written, so that adding the fault is what drops the leading "/" and reads the method.
        Fault made = Fault::fromJson(fault);
        made.path = text(fault, "path");
        made.method = text(fault, "method").toLatin1();
        QTest::newRow(name) << made << outcomes << remaining;
    };
    const QString consumer = QStringLiteral("api/v1/consumer");
    row("status twice", {{"path", consumer}, {"count", 2}, {"status", 503}}, {"503", "503", "200"}, 0);
    row("malformed body", {{"path", consumer}, {"malformedBody", true}}, {"200!", "200"}, 0);
    row("delay", {{"path", consumer}, {"status", 503}, {"delay", 300}}, {"503", "200"}, 0);
    row("leading slash", {{"path", "/api/v1/consumer"}, {"status", 502}}, {"502", "200"}, 0);
    row("path prefix", {{"path", "api/v1/*"}, {"status", 429}}, {"429", "200"}, 0);
    row("other path", {{"path", "api/v1/entitled"}, {"status", 500}}, {"200", "200"}, 1);
    row("other method", {{"path", consumer}, {"status", 500}, {"method", "post"}}, {"200", "200"}, 1);
}

void TestDevService::faults()
{
    QFETCH(Fault, fault);
    QFETCH(QStringList, outcomes);
    QFETCH(int, remaining);

    ServiceClient client(m_service.url());
    client.as(Bob, BobPassword);
    m_service.clearFaults();
    m_service.addFault(fault);
    QElapsedTimer timer;
    timer.start();
    QStringList seen{outcome(client.get("consumer"))};
    QVERIFY2(timer.elapsed() >= fault.delay, qPrintable(QString::number(timer.elapsed())));
    while (seen.size() < outcomes.size()) {
        seen.append(outcome(client.get("consumer")));
    }
    QCOMPARE(seen, outcomes);
    // A fault that never matched is still waiting; one that did is used up.
    QCOMPARE(m_service.faults().size(), remaining);
}

void TestDevService::droppedConnectionAndJournal()
{
    ServiceClient client(m_service.url());
    const QByteArray token = client.login(Bob, BobPassword);
    client.setToken(token);
    m_service.clearFaults();
    m_service.addFault(Fault::fromJson({{"path", "api/v1/logins"}, {"count", 2}, {"dropConnection", true}}));
    m_service.clearJournal();

    // Qt re-sends a request once when its connection closes before any answer, so one client
    // request may use up both drops; the service drops exactly two requests whatever the client does.
    QCOMPARE(outcome(client.get("logins?format=all_fields")), QStringLiteral("dropped"));
    QString seen;
    for (int attempt = 0; attempt < 3 && seen != "200"; ++attempt) {
        seen = outcome(client.get("logins?format=all_fields"));
    }
    QCOMPARE(seen, QStringLiteral("200"));
    QVERIFY(m_service.faults().isEmpty());
    client.send("POST", "password-reset", "{\"username\": \"bob@example.com\"}");
    const QList<DevService::ReceivedRequest> journal = m_service.journal();
    QCOMPARE(journal.size(), 4);
    QCOMPARE(QByteArray(journal.at(2).method + ' ' + journal.at(2).path + '?' + journal.at(2).query),
             QByteArray("GET /api/v1/logins?format=all_fields"));
    QCOMPARE(journal.at(2).headers.value("authorization"), "Bearer " + token);
    QCOMPARE(journal.at(3).headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(journal.at(3).body, QByteArray("{\"username\": \"bob@example.com\"}"));
}

void TestDevService::adminInterface()
{
    ServiceClient client(m_service.url());
    client.as(Bob, BobPassword);
    const Reply first =
        client.send("POST", Admin, json("{'path': 'api/v1/entitled', 'status': 502, 'count': 2}"));
    QCOMPARE(first.array().size(), 1);
    const Reply added =
        client.send("POST", Admin,
                    json("[{'path': 'api/v1/consumer', 'malformedBody': true}, {'path': "
                         "'/api/v1/logins/*', 'method': 'delete', 'count': 3, 'dropConnection': true}]"));
    QCOMPARE(added.status, 201);
    QCOMPARE(added.array().size(), 3);
    const Fault drop = m_service.faults().constLast();
    QCOMPARE(QString(drop.path + QLatin1Char(' ') + QString::fromLatin1(drop.method)),
             QStringLiteral("api/v1/logins/* DELETE"));
    QVERIFY(drop.count == 3 && drop.dropConnection && !drop.malformedBody && drop.status == 0);

    QCOMPARE(outcome(client.get("entitled")), QStringLiteral("502"));
    QCOMPARE(outcome(client.get("consumer")), QStringLiteral("200!"));
    const QJsonArray remaining = client.get(Admin).array();
    QCOMPARE(remaining.size(), 2);
    QCOMPARE(remaining.at(0).toObject().value("count").toInt(), 1);
    QCOMPARE(client.send("DELETE", Admin).status, 200);
    QVERIFY(m_service.faults().isEmpty());
    QCOMPARE(outcome(client.get("entitled")), QStringLiteral("200"));
}

void TestDevService::adminAnswersLoopbackOnly()
{
    const QList<QHostAddress> addresses = QNetworkInterface::allAddresses();
    const auto external = std::find_if(addresses.begin(), addresses.end(), [](const QHostAddress &address) {
        return address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback();
    });
    if (external == addresses.end()) {
        QSKIP("This machine has no address beyond loopback");
    }
    DevService service;
    QVERIFY(service.listen("0.0.0.0", 0));
    QUrl url = service.url();
    url.setHost(external->toString());
    ServiceClient remote(url);
    QCOMPARE(remote.send("POST", Admin, json("{'path': 'api/v1/consumer'}")).status, 403);
    QCOMPARE(remote.get(Admin).status, 403);
    QVERIFY(service.faults().isEmpty());
    // The same peer reaches the account API itself.
    QCOMPARE(remote.get("consumer").status, 401);
}

// One client's rounds: log in (every third round with the device key), poll, and every other round
// log out. The first thing that went wrong, or nothing.
QString TestDevService::runClient(int client)
{
    ServiceClient service(m_service.url());
    const PrivateKey key = m_deviceKey; // a copy per thread
    for (int round = 0; round < 10; ++round) {
        const bool device = (client + round) % 3 == 0;
        const bool ada = device || client % 2 == 0;
        const QString where = QStringLiteral("client %1 round %2: ").arg(client).arg(round);
        service.setToken({});
        const auto [issued, secret] =
            device ? challenge(service, key, key.fingerPrint()) : std::pair<Reply, QByteArray>();
        service.setToken(device
                             ? answer(service, issued.object().value("id"), secret).text("token").toLatin1()
                             : service.login(ada ? Ada : Bob, ada ? AdaPassword : BobPassword));
        QList<Reply> replies;
        for (const char *path :
             {"logins/current", "consumer", "entitled", "account/identity", "logins?format=all_fields"}) {
            replies.append(service.get(path));
            if (replies.constLast().status != 200) {
                return where + path + " failed";
            }
        }
        if (replies.at(1).text("email") != (ada ? Ada : Bob) ||
            replies.at(2).array().size() != (ada ? 9 : 5)) {
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
    m_service.setJournalLimit(0);
    std::vector<std::unique_ptr<QThread>> threads;
    QStringList failures;
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
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join('\n')));
    QSet<QString> live;
    for (const QJsonValue &login : m_service.logins()) {
        live.insert(text(login, "id"));
    }
    QCOMPARE(live, m_keptLogins);
    QCOMPARE(m_keptLogins.size(), 8 * 10 / 2);
}

// The demo is itself a scenario file; this one leaves out what can be left out.
void TestDevService::scenarios()
{
    const QString path = m_directory.filePath("small.json");
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly) && file.write(json(smallScenario())) > 0);
    file.close();
    QString error;
    const Scenario scenario = Scenario::fromFile(path, &error);
    QVERIFY2(scenario.isValid(), qPrintable(error));
    // A consumer identifier left out is derived from the user name: the same on every start.
    QCOMPARE(scenario.users().at(0).consumer, Scenario::fromFile(path).users().at(0).consumer);

    // Replacing the scenario of a running service ends its logins; an invalid one changes nothing.
    DevService service;
    QVERIFY(service.listen("127.0.0.1", 0));
    ServiceClient client(service.url());
    client.as(Ada, AdaPassword);
    QVERIFY(!service.setScenario(Scenario()));
    QCOMPARE(client.get("consumer").status, 200);
    QVERIFY(!service.playedServiceUrl("demo-files").isEmpty());
    QVERIFY(service.setScenario(scenario));
    QCOMPARE(client.get("consumer").status, 401);
    // The played services follow the scenario.
    QVERIFY(service.playedServiceUrl("demo-files").isEmpty() && !service.playedServiceUrl("s").isEmpty());
    QCOMPARE(client.login(Ada, AdaPassword), QByteArray());

    const QJsonObject defaults{{"name", "carol"}, {"email", "carol"}, {"roles", QJsonArray()}};
    QCOMPARE(subset(client.as("carol", "carol-secret").get("consumer").object(), defaults), defaults);
    QCOMPARE(client.get("tokens/svc").status, 200);
    const QJsonArray chain = client.get("account/identity").array();
    QCOMPARE(chain.size(), 1);
    QCOMPARE(text(chain.at(0), "parent"), QStringLiteral("root"));
    ServiceClient dave(service.url());
    const QJsonArray resources = dave.as("dave", "dave-secret").get("entitled").array();
    QCOMPARE(resources.size(), 1);
    // Issued by the root: signed with the development root key.
    QVERIFY(JsonSignature::verify(resources.at(0).toObject(),
                                  publicKeyOf(service.configuration().value("rootIdentity"))));

    // Keys that are not named are generated once per process.
    QJsonObject generated = merged(smallScenario(), object("{'identities': [{'id': 'team', 'bits': 2048}]}"));
    generated.remove(QStringLiteral("tokenKeyFile"));
    const Scenario first = Scenario::fromJson(generated, m_directory.path());
    const Scenario second = Scenario::fromJson(generated, m_directory.path());
    QCOMPARE(first.identities().at(0).privateKey.bits(), 2048);
    QCOMPARE(second.identities().at(0).privateKey.toPEM(), first.identities().at(0).privateKey.toPEM());
    QCOMPARE(second.tokenKey().toPEM(), first.tokenKey().toPEM());
    QVERIFY(first.tokenKey().toPEM() != first.identities().at(0).privateKey.toPEM());
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

    const QJsonObject document = merged(smallScenario(), QJsonDocument::fromJson(members).object());
    QString message;
    QVERIFY(!Scenario::fromJson(document, m_directory.path(), &message).isValid());
    QVERIFY2(message.startsWith(error), qPrintable(message));
}

QTEST_GUILESS_MAIN(TestDevService)
#include "tst_devservice.moc"

// The development service over real HTTP: the library in-process (endpoints, logins, tokens, the
// services it plays, the fault admin path and matching rules; the fault kinds are in the account
// suites' fault matrix), and the program around it (options, what it prints and writes, request
// log, exit codes).

#include "serviceclient.h"
#include "testjson.h"

#include <devservice.h>
#include <faultinjector.h>
#include <httplistener.h>
#include <tokensigner.h>

#include <VantroCrypto/privatekey.h>

#include <QJsonDocument>
#include <QLoggingCategory>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <httplib.h>

using namespace vn::test;
using vn::crypto::PrivateKey;
using vn::devservice::ApiResponse;
using vn::devservice::DevService;
using vn::devservice::Scenario;

namespace {

const QString Admin = QStringLiteral("../../admin/faults");
const QString DemoFolder = QStringLiteral(DEVSERVICE_SOURCE_DIR "/demo");

// Two users, one identity and two resources; carol alone is entitled to the service.
const char *const SmallScenario =
    "{'users': [{'username': 'carol', 'password': 'carol-secret'}, {'username': 'dave'}],"
    " 'identities': [{'id': 'team', 'keyFile': 'identity-account.pem'}], 'tokenKeyFile': 'token-signing.pem',"
    " 'resources': [{'id': 'db', 'type': 'vantro.resource.Database', 'issuer': 'root'},"
    "               {'id': 'svc', 'type': 'vantro.resource.Service', 'users': ['carol'],"
    "                'payload': {'service': 's'}}]}";

} // namespace

class TestDevService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice*.info=false"));
        QVERIFY(m_service.listen("127.0.0.1", 0));
        m_deviceKey = PrivateKey(readFile(DEVSERVICE_SOURCE_DIR "/keys/demo-device.pem"));
    }

    void endpoints_data()
    {
        QTest::addColumn<QString>("user");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QByteArray>("body");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("length"); // of the array answered
        auto row = [](const char *name, const QString &user, const char *method, const QString &path,
                      int status, int length = 0, const QByteArray &body = {}) {
            QTest::newRow(name) << user << QByteArray(method) << path << json(body) << status << length;
        };
        const QString none;
        row("bob's resources", demo::Bob, "GET", "entitled", 200, 5);
        row("service not entitled", demo::Bob, "GET", "tokens/" + demo::ReportsService, 404);
        row("not a service", demo::Ada, "GET", "tokens/" + demo::Database, 404);
        row("deep nesting", none, "POST", "authenticate", 400, 0, QByteArray(100000, '['));
        row("just below the body limit", none, "POST", "password-reset", 404, 0,
            "{'username': '" + QByteArray(1024 * 1024 - 64, 'a') + "'}");
        row("just above the body limit", none, "POST", "password-reset", 413, 0,
            QByteArray(1024 * 1024 + 1, ' '));
        row("GET authenticate", none, "GET", "authenticate", 405);
        row("unknown path", demo::Ada, "GET", "nothing/here", 404);
        row("outside the API", demo::Ada, "GET", "../../favicon.ico", 404);
        row("path with escapes", demo::Ada, "GET", "consumer%00%2F..", 404);
    }

    void endpoints()
    {
        QFETCH(QString, user);
        QFETCH(QByteArray, method);
        QFETCH(QString, path);
        QFETCH(QByteArray, body);
        QFETCH(int, status);
        QFETCH(int, length);

        ServiceClient client(m_service.url());
        if (!user.isEmpty()) {
            client.as(user);
        }
        const Reply reply = client.send(method, path, body);
        QCOMPARE(reply.status, status);
        QCOMPARE(reply.array().size(), length);
    }

    void credentialLogin_data()
    {
        // Members that replace those of Ada's login.
        QTest::addColumn<QJsonObject>("members");
        QTest::addColumn<int>("status");
        // The user the token acts for, and the session record's "authenticatedAs".
        QTest::addColumn<QString>("actingUser");
        QTest::addColumn<QString>("authenticatedAs");
        auto row = [](const char *name, const char *members, int status,
                      const QString &actingUser = QString(), const QString &authenticatedAs = QString()) {
            QTest::newRow(name) << jsonObject(members) << status << actingUser << authenticatedAs;
        };
        row("ada", "{'username': ' ada@example.com '}", 200, demo::Ada);
        row("ada as bob", "{'impersonate': 'bob@example.com'}", 200, demo::Bob, demo::Ada);
        row("user name a number", "{'username': 42}", 400);
        row("persistent a string", "{'persistent': 'yes'}", 400);
    }

    void credentialLogin()
    {
        QFETCH(QJsonObject, members);
        QFETCH(int, status);
        QFETCH(QString, actingUser);
        QFETCH(QString, authenticatedAs);

        QJsonObject login = jsonObject("{'authType': 'credentials', 'username': 'ada@example.com', "
                                       "'password': 'ada-demo-password', 'hostInfo': 'WS-17'}");
        for (auto it = members.begin(); it != members.end(); ++it) {
            login.insert(it.key(), it.value());
        }
        ServiceClient client(m_service.url());
        const Reply reply = client.send("POST", "authenticate", QJsonDocument(login).toJson());
        QCOMPARE(reply.status, status);
        client.setToken(reply.text("token").toLatin1());
        QCOMPARE(client.get("consumer").text("email"), actingUser);
        const Reply session = client.get("logins/current");
        QCOMPARE(session.text("authenticatedAs"), authenticatedAs);
        QCOMPARE(session.text("hostInfo"), QString(status == 200 ? "WS-17" : ""));
    }

    void challengeResponse_data()
    {
        // The id sent instead of the challenge's own, if any.
        QTest::addColumn<QJsonValue>("id");
        QTest::addColumn<bool>("wrongAnswer");
        QTest::addColumn<int>("status");
        // An answer uses the challenge up, right or wrong; a request that names none does not.
        QTest::addColumn<int>("rightAnswerAfterwards");
        QTest::newRow("right answer") << QJsonValue() << false << 200 << 401;
        QTest::newRow("wrong answer") << QJsonValue() << true << 401 << 401;
        QTest::newRow("unknown challenge") << QJsonValue("x") << false << 401 << 200;
        QTest::newRow("no challenge id") << QJsonValue(QJsonValue::Undefined) << false << 400 << 200;
    }

    void challengeResponse()
    {
        QFETCH(QJsonValue, id);
        QFETCH(bool, wrongAnswer);
        QFETCH(int, status);
        QFETCH(int, rightAnswerAfterwards);

        ServiceClient client(m_service.url());
        const Reply issued =
            client.post("authenticate", {{"authType", "challenge-response"},
                                         {"phase", "challenge"},
                                         {"fingerprint", QString(m_deviceKey.fingerPrint().toBase64())}});
        const QJsonValue issuedId = issued.object().value("id");
        const QByteArray secret =
            PrivateKey(m_deviceKey).decrypt(QByteArray::fromBase64(issued.text("challenge").toLatin1()));
        // An undefined id sends none.
        const auto answer = [&client](const QJsonValue &challengeId, const QByteArray &given) {
            return client.post("authenticate", {{"authType", "challenge-response"},
                                                {"phase", "response"},
                                                {"challenge", QString(given.toBase64())},
                                                {"challengeId", challengeId}});
        };
        QByteArray given = secret;
        given[0] = char(given.at(0) ^ (wrongAnswer ? 1 : 0));
        const Reply reply = answer(id.isNull() ? issuedId : id, given);
        QCOMPARE(reply.status, status);
        client.setToken(reply.text("token").toLatin1());
        QCOMPARE(client.get("logins/current").text("authenticatedAs"),
                 QString(status == 200 ? "demo-device" : ""));
        QCOMPARE(answer(issuedId, secret).status, rightAnswerAfterwards);
    }

    void refusedWithoutLiveLogin_data()
    {
        QTest::addColumn<QString>("credential");
        QTest::newRow("no authorization") << QString();
        QTest::newRow("unknown token") << "eyJhbGciOiJSUzI1NiJ9.e30.c2ln";
        QTest::newRow("logged out") << "logged out";
        QTest::newRow("login deleted from elsewhere") << "deleted";
        QTest::newRow("token expired") << "expired";
    }

    void refusedWithoutLiveLogin()
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
                QCOMPARE(ServiceClient(m_service.url()).as(demo::Ada).send("DELETE", "logins/" + id).status,
                         200);
            }
        }
        for (const QString &endpoint :
             QStringList{"GET logins/current", "GET consumer", "GET account/identity", "GET entitled",
                         "GET tokens/" + demo::FilesService, "GET logins", "DELETE logins/x",
                         "DELETE logins/current"}) {
            const Reply reply = client.send(endpoint.section(' ', 0, 0).toLatin1(), endpoint.section(' ', 1));
            QCOMPARE(QString(endpoint + ' ' + QString::number(reply.status) + ' ' + reply.wwwAuthenticate),
                     QString(endpoint + " 401 Bearer"));
        }
    }

    void playedServices_data()
    {
        QTest::addColumn<QString>("service");
        QTest::addColumn<QString>("bearer");
        QTest::addColumn<QByteArray>("method");
        QTest::addColumn<int>("status");
        QTest::addColumn<QJsonObject>("expected");
        auto row = [](const char *name, const char *service, const char *bearer, int status,
                      const char *expected, const char *method = "GET") {
            QTest::newRow(name) << QString(service) << QString(bearer) << QByteArray(method) << status
                                << jsonObject(expected);
        };
        row("own token", "demo-files", "demo-files", 200,
            "{'service': 'demo-files', 'path': '/api/v1/items', "
            "'subject': 'd99d9154-7a9c-4694-a1c7-0e2359e87f70', 'name': 'Ada Lovelace'}");
        row("no token", "demo-files", "", 401, "{'error': 'a bearer token is required'}");
        row("token of the account", "demo-reports", "account", 401,
            "{'error': 'the token is not for this service'}");
        row("expired", "demo-files", "expired", 401, "{'error': 'the token has expired'}");
        row("signature of another token", "demo-files", "tampered", 401,
            "{'error': 'the token\\u0027s signature does not verify'}");
        row("POST", "demo-files", "demo-files", 405, "{'error': 'method not allowed'}", "POST");
    }

    void playedServices()
    {
        QFETCH(QString, service);
        QFETCH(QString, bearer);
        QFETCH(QByteArray, method);
        QFETCH(int, status);
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
            {"account", account},
            {"tampered", files.left(files.lastIndexOf('.')) + account.mid(account.lastIndexOf('.'))}};

        ServiceClient client(m_service.playedServiceUrl(service));
        client.setToken(tokens.value(bearer));
        const Reply reply = client.send(method, "items");
        QCOMPARE(reply.status, status);
        // Who called, or what was wrong, but never the token.
        QCOMPARE(subset(reply.object(), expected), expected);
        QCOMPARE(reply.wwwAuthenticate, QByteArray(status == 401 ? "Bearer" : ""));
    }

    void loginsOfTheCaller()
    {
        // Logins of earlier test functions would show in the list: start from a fresh scenario.
        QVERIFY(m_service.setScenario(m_service.scenario()));
        ServiceClient first(m_service.url()), second(m_service.url()), bob(m_service.url());
        const QString firstId = first.as(demo::Ada).get("logins/current").text("id");
        const QString secondId = second.as(demo::Ada).get("logins/current").text("id");
        const QString bobId = bob.as(demo::Bob).get("logins/current").text("id");
        QStringList ids;
        for (const QJsonValue &login : first.get("logins?format=all_fields").array()) {
            ids.append(login.toObject().value("id").toString());
        }
        QCOMPARE(ids, QStringList({firstId, secondId}));
        // Another user's login is answered as if it did not exist, and lives on.
        QCOMPARE(first.send("DELETE", "logins/" + bobId).status, 404);
        QCOMPARE(bob.get("consumer").status, 200);
    }

    // A client that reads no body after a 204 or a 304 would take one for the start of the next answer.
    void answersWithoutBody()
    {
        for (const int status : {204, 304}) {
            httplib::Response response;
            vn::devservice::HttpListener::write(response, ApiResponse::error(status, "injected fault"));
            QCOMPARE(response.body, std::string());
        }
    }

    void journal()
    {
        ServiceClient client(m_service.url());
        m_service.clearJournal();
        client.send("POST", "logins?format=all_fields", "{\"a\": 1}");
        client.get("consumer");
        const QList<DevService::ReceivedRequest> journal = m_service.journal();
        QCOMPARE(journal.size(), 2);
        const auto &first = journal.at(0);
        QCOMPARE(QByteArray(first.method + ' ' + first.path + '?' + first.query + ' ' + first.body + ' ' +
                            first.headers.value("content-type")),
                 QByteArray("POST /api/v1/logins?format=all_fields {\"a\": 1} application/json"));
        // The oldest go first.
        m_service.setJournalLimit(1);
        QCOMPARE(m_service.journal().constFirst().path, QByteArray("/api/v1/consumer"));
        m_service.setJournalLimit(DevService::DefaultJournalLimit);
    }

    // Faults as a script adds them over HTTP (one or a list), and as C++ code does, written as they
    // come: each applies to its own path and method, after its skip, and is used up after its count.
    void adminInterface()
    {
        ServiceClient client(m_service.url());
        client.as(demo::Bob);
        m_service.clearFaults();
        m_service.addFault({"/api/v1/*", "delete", 1, 502});
        const auto post = [&client](const char *faults) { return client.send("POST", Admin, json(faults)); };
        QCOMPARE(post("{'path': 'api/v1/consumer', 'status': 503, 'skip': 1, 'count': 2}").status, 201);
        const Reply added = post("[{'path': '/api/v1/entitled', 'method': 'get', 'malformedBody': true}, "
                                 "{'path': 'api/v1/logins', 'status': 500}]");
        QCOMPARE(added.array().size(), 4);
        QCOMPARE(
            added.array().at(2).toObject(),
            jsonObject("{'path': 'api/v1/entitled', 'method': 'GET', 'count': 1, 'status': 0, 'delay': 0, "
                       "'malformedBody': true, 'dropConnection': false, 'skip': 0, 'truncateBody': false, "
                       "'padTo': 0, 'badSignature': false}"));
        // Faults that do not read are refused, all of them.
        for (const char *refused : {"{'status': 500}", "[{'path': 'api/v1/consumer'}, {'path': 5}]",
                                    "{'path': 'api/v1/consumer', 'status': 42}", "path=api/v1/consumer"}) {
            QCOMPARE(post(refused).status, 400);
        }
        QStringList seen;
        for (const char *path : {"consumer", "consumer", "consumer", "consumer", "entitled"}) {
            seen.append(client.get(path).outcome());
        }
        seen.append(client.send("DELETE", "logins/x").outcome());
        QCOMPARE(seen, QStringList({"200", "503", "503", "200", "200!", "502"}));
        QCOMPARE(client.get(Admin).array().size(), 1);
        QCOMPARE(client.send("DELETE", Admin).array(), QJsonArray());
        QCOMPARE(client.get("logins").outcome(), QStringLiteral("200"));

        // Only loopback peers, as the HTTP layer reports them, may use it.
        vn::devservice::FaultInjector injector;
        for (const QString &peer : QStringList{"127.0.0.1 200", "::1 200", "::ffff:127.0.0.1 200",
                                               "192.0.2.7 403", "::ffff:192.0.2.7 403"}) {
            const int status = injector.serveAdmin("GET", {}, peer.section(' ', 0, 0).toStdString()).status;
            QCOMPARE(QString(peer.section(' ', 0, 0) + ' ' + QString::number(status)), peer);
        }
    }

    // The demo is itself a scenario; this one leaves out what can be left out.
    void scenarios()
    {
        const Scenario scenario = Scenario::fromJson(jsonObject(SmallScenario), DemoFolder);
        // A consumer identifier left out is derived from the user name: the same on every start.
        QCOMPARE(scenario.users().at(0).consumer,
                 jsonObject("{'id': 'f3de4a43-9e7b-5008-b232-b91d0c74c789', 'name': "
                            "'carol', 'email': 'carol', 'permissions': [], 'roles': []}"));

        // A new scenario ends the logins, and the played services follow it; an invalid one changes nothing.
        DevService service;
        QVERIFY(service.listen("127.0.0.1", 0));
        ServiceClient client(service.url());
        client.as(demo::Ada);
        QVERIFY(!service.setScenario(Scenario()));
        QCOMPARE(client.get("consumer").status, 200);
        QVERIFY(service.setScenario(scenario));
        QCOMPARE(client.get("consumer").status, 401);
        QVERIFY(service.playedServiceUrl("demo-files").isEmpty() && !service.playedServiceUrl("s").isEmpty());
        client.setToken(client.login("carol", "carol-secret"));
        QCOMPARE(client.get("tokens/svc").status, 200);

        // Keys that are not named are generated once per process, each of its own.
        QJsonObject generated = jsonObject(SmallScenario);
        generated.insert("identities", QJsonArray{jsonObject("{'id': 'team', 'bits': 2048}")});
        generated.remove(QStringLiteral("tokenKeyFile"));
        const Scenario first = Scenario::fromJson(generated, DemoFolder);
        const Scenario second = Scenario::fromJson(generated, DemoFolder);
        QCOMPARE(first.identities().at(0).privateKey.bits(), 2048);
        QCOMPARE(second.identities().at(0).privateKey.toPEM(), first.identities().at(0).privateKey.toPEM());
        QCOMPARE(second.tokenKey().toPEM(), first.tokenKey().toPEM());
        QVERIFY(first.tokenKey().toPEM() != first.identities().at(0).privateKey.toPEM());
    }

    void brokenScenarios_data()
    {
        // Members that replace those of the small scenario, and the start of the error message.
        QTest::addColumn<QJsonObject>("members");
        QTest::addColumn<QString>("error");
        auto row = [](const char *name, const char *members, const char *error) {
            QTest::newRow(name) << jsonObject(members) << QString(error);
        };
        row("user twice", "{'users': [{'username': 'x'}, {'username': 'x'}]}", "users[1].username:");
        row("resource issuer unknown", "{'resources': [{'id': 'r', 'type': 't', 'issuer': 'x'}]}",
            "resources[0].issuer:");
        row("resource for nobody", "{'resources': [{'id': 'r', 'type': 't', 'users': ['eve']}]}",
            "resources[0].users:");
        row("played service without a name",
            "{'resources': [{'id': 'r', 'type': 'vantro.resource.Service'}]}",
            "resources[0].payload.service:");
    }

    void brokenScenarios()
    {
        QFETCH(QJsonObject, members);
        QFETCH(QString, error);

        QJsonObject document = jsonObject(SmallScenario);
        for (auto it = members.begin(); it != members.end(); ++it) {
            document.insert(it.key(), it.value());
        }
        QString message;
        QVERIFY(!Scenario::fromJson(document, DemoFolder, &message).isValid());
        QVERIFY2(message.startsWith(error), qPrintable(message));
    }

    // The program around the library: what it prints and writes, its request log, its exit codes.
    void program()
    {
        QTemporaryDir directory;
        const QString configurationPath = directory.filePath("account.json");
        QProcess program;
        program.start(DEVSERVICE_PROGRAM,
                      {"--port", "0", "--base", "/base", "--write-config", configurationPath,
                       "--token-lifetime", "120", "--service-token-lifetime", "60"});
        // The three lines are flushed together.
        QTRY_VERIFY_WITH_TIMEOUT(program.canReadLine(), 20000);
        const QString lines = QString::fromUtf8(program.readAllStandardOutput());
        const auto match = QRegularExpression("^listening on (http://127\\.0\\.0\\.1:\\d+/base)\n"
                                              "service demo-files on http://127\\.0\\.0\\.1:\\d+/\n"
                                              "service demo-reports on http://127\\.0\\.0\\.1:\\d+/\n$")
                               .match(lines);
        QVERIFY2(match.hasMatch(), qPrintable(lines));
        const QUrl url(match.captured(1));
        const QJsonObject configuration = QJsonDocument::fromJson(readFile(configurationPath)).object();
        QCOMPARE(configuration.value("serviceUrl").toString(), url.toString());
        // Clients verify what it holds; others may read it, not write it.
        QCOMPARE(QFile::permissions(configurationPath) & (QFileDevice::ReadOther | QFileDevice::WriteOther),
                 QFileDevice::Permissions(QFileDevice::ReadOther));

        ServiceClient client(url);
        const QByteArray token = client.login(demo::Ada, demo::AdaPassword);
        client.setToken(token);
        const QByteArray serviceToken = client.get("tokens/" + demo::FilesService).text("token").toLatin1();
        // Signature and encoding are checked end to end by the account suites and the played services.
        for (const auto &[issued, audience, lifetime] :
             {std::tuple(token, "vantro-account", 120), std::tuple(serviceToken, "demo-files", 60)}) {
            const QJsonObject claims = vn::devservice::TokenSigner::readClaims(issued);
            const QJsonObject expected{
                {"iss", url.toString()}, {"sub", demo::AdaConsumerId}, {"aud", audience}};
            QCOMPARE(subset(claims, expected), expected);
            QCOMPARE(claims.value("exp").toDouble() - claims.value("iat").toDouble(), double(lifetime));
        }
        QCOMPARE(client.get("../../admin/faults").status, 200);
        // Nothing answers outside the base path.
        ServiceClient outside(url.adjusted(QUrl::RemovePath));
        outside.setToken(token);
        QCOMPARE(outside.get("consumer").status, 404);

        program.terminate();
        QVERIFY(program.waitForFinished(20000));
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
        // One line per request, and never a credential.
        const QString log = QString::fromUtf8(program.readAllStandardError());
        QVERIFY(!log.contains(demo::AdaPassword) &&
                !log.contains(QString::fromLatin1(token.split('.').at(1))));
        const QStringList logged = log.split('\n').filter("vantro.devservice.request: ");
        QCOMPARE(logged.size(), 4);
        QVERIFY2(
            QRegularExpression("POST /base/api/v1/authenticate 200 \\d+ ms$").match(logged.at(0)).hasMatch(),
            qPrintable(logged.at(0)));
        // Connections are logged from their own threads, in no fixed order.
        QVERIFY2(log.contains("GET /api/v1/consumer 404"), qPrintable(log));
    }

    void programRefusesBadOptions_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("exitCode");
        const auto row = [](const char *name, const char *arguments, int exitCode) {
            QTest::newRow(name) << QString(arguments).split(' ') << exitCode;
        };
        row("port not a number", "--port eighty", 2);
        row("port out of range", "--port 70000", 2);
        row("services port out of range", "--services-port 70000", 2);
        row("token lifetime zero", "--token-lifetime 0", 2);
        row("unknown option", "--verbose", 2);
        row("stray argument", "serve", 2);
        row("missing scenario", "--port 0 --scenario /nonexistent/scenario.json", 1);
        row("address of another machine", "--port 0 --listen 192.0.2.1", 1);
        row("configuration in a missing folder", "--port 0 --write-config /nonexistent/folder/account.json",
            1);
    }

    void programRefusesBadOptions()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, exitCode);

        const ProcessResult result = runProcess(DEVSERVICE_PROGRAM, arguments);
        QCOMPARE(result.exitCode, exitCode);
        QVERIFY(result.out.isEmpty() && result.err.contains("vantro-account-devservice: "));
    }

private:
    DevService m_service;
    PrivateKey m_deviceKey;
};

QTEST_GUILESS_MAIN(TestDevService)
#include "tst_devservice.moc"

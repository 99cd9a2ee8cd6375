// The vantro-account-devservice program: options, what it prints and writes, request log, exit codes.

#include "serviceclient.h"
#include "testjson.h"

#include <tokensigner.h>

#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace vn::test;

class TestDevServiceProgram : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void servesAndStops();
    void refusesBadOptions_data();
    void refusesBadOptions();
};

void TestDevServiceProgram::servesAndStops()
{
    QTemporaryDir directory;
    const QString configurationPath = directory.filePath("account.json");
    QProcess program;
    program.start(DEVSERVICE_PROGRAM, {"--port", "0", "--base", "/base", "--write-config", configurationPath,
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
        const QJsonObject expected{{"iss", url.toString()}, {"sub", demo::AdaConsumerId}, {"aud", audience}};
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
    QVERIFY(!log.contains(demo::AdaPassword) && !log.contains(QString::fromLatin1(token.split('.').at(1))));
    const QStringList logged = log.split('\n').filter("vantro.devservice.request: ");
    QCOMPARE(logged.size(), 4);
    QVERIFY2(QRegularExpression("POST /base/api/v1/authenticate 200 \\d+ ms$").match(logged.at(0)).hasMatch(),
             qPrintable(logged.at(0)));
    // Connections are logged from their own threads, in no fixed order.
    QVERIFY2(log.contains("GET /api/v1/consumer 404"), qPrintable(log));
}

void TestDevServiceProgram::refusesBadOptions_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("port not a number") << QStringList{"--port", "eighty"} << 2;
    QTest::newRow("port out of range") << QStringList{"--port", "70000"} << 2;
    QTest::newRow("services port out of range") << QStringList{"--services-port", "70000"} << 2;
    QTest::newRow("token lifetime zero") << QStringList{"--token-lifetime", "0"} << 2;
    QTest::newRow("unknown option") << QStringList{"--verbose"} << 2;
    QTest::newRow("stray argument") << QStringList{"serve"} << 2;
    QTest::newRow("missing scenario")
        << QStringList{"--port", "0", "--scenario", "/nonexistent/scenario.json"} << 1;
    QTest::newRow("address of another machine") << QStringList{"--port", "0", "--listen", "192.0.2.1"} << 1;
    QTest::newRow("configuration in a missing folder")
        << QStringList{"--port", "0", "--write-config", "/nonexistent/folder/account.json"} << 1;
}

void TestDevServiceProgram::refusesBadOptions()
{
    QFETCH(QStringList, arguments);
    QFETCH(int, exitCode);

    const ProcessResult result = runProcess(DEVSERVICE_PROGRAM, arguments);
    QCOMPARE(result.exitCode, exitCode);
    QVERIFY(result.out.isEmpty() && result.err.contains("vantro-account-devservice: "));
}

QTEST_GUILESS_MAIN(TestDevServiceProgram)
#include "tst_devservice_program.moc"

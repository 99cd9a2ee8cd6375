// The vantro-account-devservice program: its options, the line it prints, the configuration it
// writes, its request log and its exit codes.

#include "serviceclient.h"

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/publickey.h>

#include <QFile>
#include <QJsonDocument>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using vn::test::Reply;
using vn::test::ServiceClient;

namespace {

qint64 lifetime(const QByteArray &token)
{
    const QJsonObject claims =
        QJsonDocument::fromJson(QByteArray::fromBase64(token.split('.').value(1))).object();
    return qint64(claims.value(QLatin1String("exp")).toDouble() -
                  claims.value(QLatin1String("iat")).toDouble());
}

} // namespace

class TestDevServiceProgram : public QObject
{
    Q_OBJECT

private slots:
    void servesAndStops();
    void refusesBadOptions_data();
    void refusesBadOptions();
};

void TestDevServiceProgram::servesAndStops()
{
    QTemporaryDir directory;
    QVERIFY(directory.isValid());
    const QString configurationPath = directory.filePath(QStringLiteral("account.json"));
    QProcess program;
    program.start(QStringLiteral(DEVSERVICE_PROGRAM),
                  {QStringLiteral("--port"), QStringLiteral("0"), QStringLiteral("--base"),
                   QStringLiteral("/base"), QStringLiteral("--write-config"), configurationPath,
                   QStringLiteral("--token-lifetime"), QStringLiteral("120"),
                   QStringLiteral("--service-token-lifetime"), QStringLiteral("60")});
    QVERIFY(program.waitForStarted());
    QTRY_VERIFY_WITH_TIMEOUT(program.canReadLine(), 20000);
    const QString line = QString::fromUtf8(program.readLine()).trimmed();
    const QRegularExpressionMatch match =
        QRegularExpression(QStringLiteral("^listening on (http://127\\.0\\.0\\.1:\\d+/base)$")).match(line);
    QVERIFY2(match.hasMatch(), qPrintable(line));
    const QUrl url(match.captured(1));

    QFile file(configurationPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QJsonObject configuration = QJsonDocument::fromJson(file.readAll()).object();
    QCOMPARE(configuration.value(QLatin1String("serviceUrl")).toString(), url.toString());
    QVERIFY(vn::crypto::JsonSignature::verify(configuration,
                                              vn::crypto::PublicKey(QStringLiteral(ACCOUNT_CONFIG_KEY))));

    ServiceClient client(url);
    const QByteArray token =
        client.login(QStringLiteral("ada@example.com"), QStringLiteral("ada-demo-password"));
    QCOMPARE(lifetime(token), qint64(120));
    client.setToken(token);
    const Reply service = client.get(QStringLiteral("tokens/e229d538-f031-47f0-8501-7318f794bdf8"));
    QCOMPARE(service.status, 200);
    QCOMPARE(lifetime(service.object().value(QLatin1String("token")).toString().toLatin1()), qint64(60));
    QCOMPARE(client.get(QStringLiteral("../../admin/faults")).status, 200);

    program.terminate();
    QVERIFY(program.waitForFinished(20000));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);

    // One line per request, and never a credential.
    const QString log = QString::fromUtf8(program.readAllStandardError());
    const QStringList lines =
        log.split(QLatin1Char('\n')).filter(QStringLiteral("vantro.devservice.request"));
    QCOMPARE(lines.size(), 3);
    QVERIFY2(QRegularExpression(QStringLiteral("POST /base/api/v1/authenticate 200 \\d+ ms$"))
                 .match(lines.at(0))
                 .hasMatch(),
             qPrintable(lines.at(0)));
    QVERIFY(lines.at(1).contains(
        QLatin1String("GET /base/api/v1/tokens/e229d538-f031-47f0-8501-7318f794bdf8 200")));
    QVERIFY(!log.contains(QLatin1String("ada-demo-password")));
    QVERIFY(!log.contains(QString::fromLatin1(token.left(40))));
}

void TestDevServiceProgram::refusesBadOptions_data()
{
    QTest::addColumn<QStringList>("arguments");
    QTest::addColumn<int>("exitCode");
    QTest::newRow("port not a number") << QStringList{"--port", "eighty"} << 2;
    QTest::newRow("port out of range") << QStringList{"--port", "70000"} << 2;
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

    QProcess program;
    program.start(QStringLiteral(DEVSERVICE_PROGRAM), arguments);
    QVERIFY(program.waitForFinished(20000));
    QCOMPARE(program.exitCode(), exitCode);
    QVERIFY(program.readAllStandardOutput().isEmpty());
    QVERIFY(program.readAllStandardError().contains("vantro-account-devservice: "));
}

QTEST_GUILESS_MAIN(TestDevServiceProgram)
#include "tst_devservice_program.moc"

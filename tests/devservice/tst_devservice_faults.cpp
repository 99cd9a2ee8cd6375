// Faults on demand: status, delay, malformed body and dropped connection for the next N requests to
// a path, through the C++ interface and the admin path; and the journal of received requests.

#include "serviceclient.h"

#include <devservice.h>

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QNetworkInterface>
#include <QTest>

using vn::devservice::DevService;
using vn::devservice::Fault;
using vn::test::Reply;
using vn::test::ServiceClient;

Q_DECLARE_METATYPE(vn::devservice::Fault)

namespace {

Fault fault(const char *path, int count, int status = 0)
{
    Fault made;
    made.path = QLatin1String(path);
    made.count = count;
    made.status = status;
    return made;
}

// "503": that status with a JSON body; "200!": that status with a body that is not JSON;
// "dropped": no answer at all.
QString outcome(const Reply &reply)
{
    if (reply.status == 0) {
        return reply.error != QNetworkReply::NoError ? QStringLiteral("dropped") : QStringLiteral("nothing");
    }
    return QString::number(reply.status) + (reply.parsed ? QString() : QStringLiteral("!"));
}

} // namespace

class TestDevServiceFaults : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void init();
    void faultsStopAfterTheirCount_data();
    void faultsStopAfterTheirCount();
    void droppedConnection();
    void delay();
    void adminInterface();
    void adminRejectsBadFaults_data();
    void adminRejectsBadFaults();
    void adminAnswersLoopbackOnly();
    void journal();

private:
    DevService m_service;
    QByteArray m_token;
};

void TestDevServiceFaults::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    m_token = ServiceClient(m_service.url())
                  .login(QStringLiteral("bob@example.com"), QStringLiteral("bob-demo-password"));
    QVERIFY(!m_token.isEmpty());
}

void TestDevServiceFaults::init()
{
    m_service.clearFaults();
}

void TestDevServiceFaults::faultsStopAfterTheirCount_data()
{
    QTest::addColumn<Fault>("fault");
    QTest::addColumn<QStringList>("outcomes");
    QTest::addColumn<int>("remaining");

    QTest::newRow("status twice") << fault("api/v1/consumer", 2, 503) << QStringList{"503", "503", "200"}
                                  << 0;
    Fault malformed = fault("api/v1/consumer", 1);
    malformed.malformedBody = true;
    QTest::newRow("malformed body") << malformed << QStringList{"200!", "200"} << 0;
    QTest::newRow("leading slash") << fault("/api/v1/consumer", 1, 502) << QStringList{"502", "200"} << 0;
    QTest::newRow("path prefix") << fault("api/v1/*", 1, 429) << QStringList{"429", "200"} << 0;
    QTest::newRow("other path") << fault("api/v1/entitled", 1, 500) << QStringList{"200", "200"} << 1;
    Fault post = fault("api/v1/consumer", 1, 500);
    post.method = "POST";
    QTest::newRow("other method") << post << QStringList{"200", "200"} << 1;
}

void TestDevServiceFaults::faultsStopAfterTheirCount()
{
    QFETCH(Fault, fault);
    QFETCH(QStringList, outcomes);
    QFETCH(int, remaining);

    m_service.addFault(fault);
    ServiceClient client(m_service.url());
    client.setToken(m_token);
    QStringList seen;
    for (int request = 0; request < outcomes.size(); ++request) {
        seen.append(outcome(client.get(QStringLiteral("consumer"))));
    }
    QCOMPARE(seen, outcomes);
    // A fault that never matched is still waiting; one that did is used up.
    QCOMPARE(m_service.faults().size(), remaining);
}

void TestDevServiceFaults::droppedConnection()
{
    Fault dropped = fault("api/v1/consumer", 2);
    dropped.dropConnection = true;
    m_service.addFault(dropped);
    m_service.clearJournal();
    ServiceClient client(m_service.url());
    client.setToken(m_token);

    // Qt re-sends a request once when its connection closes before any answer, so one client
    // request may use up both drops; the service drops exactly two requests whatever the client does.
    QCOMPARE(outcome(client.get(QStringLiteral("consumer"))), QStringLiteral("dropped"));
    int served = 0;
    for (int attempt = 0; attempt < 3 && served == 0; ++attempt) {
        const QString seen = outcome(client.get(QStringLiteral("consumer")));
        QVERIFY(seen == QLatin1String("200") || seen == QLatin1String("dropped"));
        served += seen == QLatin1String("200") ? 1 : 0;
    }
    QCOMPARE(served, 1);
    QCOMPARE(m_service.journal().size(), 2 + served);
    QVERIFY(m_service.faults().isEmpty());
}

void TestDevServiceFaults::delay()
{
    Fault slow = fault("api/v1/authenticate", 1);
    slow.delay = 300;
    slow.status = 503;
    m_service.addFault(slow);
    ServiceClient client(m_service.url());
    QElapsedTimer timer;
    timer.start();
    QCOMPARE(client.post(QStringLiteral("authenticate"), QByteArray("{}")).status, 503);
    QVERIFY2(timer.elapsed() >= 300, qPrintable(QString::number(timer.elapsed())));
    QCOMPARE(client.post(QStringLiteral("authenticate"), QByteArray("{}")).status, 400);
}

void TestDevServiceFaults::adminInterface()
{
    ServiceClient client(m_service.url());
    client.setToken(m_token);
    const QString admin = QStringLiteral("../../admin/faults");

    Reply added = client.post(admin, QByteArray(R"({"path": "api/v1/entitled", "status": 502, "count": 2})"));
    QCOMPARE(added.status, 201);
    QCOMPARE(added.array().size(), 1);
    added = client.post(admin, QByteArray(R"([{"path": "api/v1/consumer", "delay": 10, "malformedBody": true},
                                               {"path": "/api/v1/logins/*", "method": "delete", "count": 3,
                                                "dropConnection": true}])"));
    QCOMPARE(added.status, 201);
    QCOMPARE(client.get(admin).array().size(), 3);
    const Fault drop = m_service.faults().constLast();
    QCOMPARE(drop.path, QStringLiteral("api/v1/logins/*"));
    QCOMPARE(drop.method, QByteArray("DELETE"));
    QCOMPARE(drop.count, 3);
    QVERIFY(drop.dropConnection && !drop.malformedBody && drop.status == 0);

    QCOMPARE(outcome(client.get(QStringLiteral("entitled"))), QStringLiteral("502"));
    QCOMPARE(outcome(client.get(QStringLiteral("consumer"))), QStringLiteral("200!"));
    QCOMPARE(outcome(client.get(QStringLiteral("consumer"))), QStringLiteral("200"));
    const QJsonArray remaining = client.get(admin).array();
    QCOMPARE(remaining.size(), 2);
    QCOMPARE(remaining.at(0).toObject().value(QLatin1String("count")).toInt(), 1);

    QCOMPARE(client.remove(admin).status, 200);
    QVERIFY(m_service.faults().isEmpty());
    QCOMPARE(outcome(client.get(QStringLiteral("entitled"))), QStringLiteral("200"));
}

void TestDevServiceFaults::adminRejectsBadFaults_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::newRow("no path") << QByteArray(R"({"status": 500})");
    QTest::newRow("status out of range") << QByteArray(R"({"path": "api/v1/consumer", "status": 42})");
    QTest::newRow("one bad fault of two") << QByteArray(R"([{"path": "api/v1/consumer"}, {"path": 5}])");
    QTest::newRow("not JSON") << QByteArray("path=api/v1/consumer");
}

void TestDevServiceFaults::adminRejectsBadFaults()
{
    QFETCH(QByteArray, body);
    ServiceClient client(m_service.url());
    QCOMPARE(client.post(QStringLiteral("../../admin/faults"), body).status, 400);
    QVERIFY(m_service.faults().isEmpty());
}

void TestDevServiceFaults::adminAnswersLoopbackOnly()
{
    QHostAddress external;
    for (const QHostAddress &address : QNetworkInterface::allAddresses()) {
        if (address.protocol() == QAbstractSocket::IPv4Protocol && !address.isLoopback()) {
            external = address;
            break;
        }
    }
    if (external.isNull()) {
        QSKIP("This machine has no address beyond loopback");
    }
    DevService service;
    QVERIFY(service.listen(QStringLiteral("0.0.0.0"), 0));
    QUrl url = service.url();
    url.setHost(external.toString());
    ServiceClient remote(url);
    QCOMPARE(remote.post(QStringLiteral("../../admin/faults"), QByteArray(R"({"path": "api/v1/consumer"})"))
                 .status,
             403);
    QCOMPARE(remote.get(QStringLiteral("../../admin/faults")).status, 403);
    QVERIFY(service.faults().isEmpty());
    // The same peer reaches the account API itself.
    QCOMPARE(remote.get(QStringLiteral("consumer")).status, 401);
}

void TestDevServiceFaults::journal()
{
    m_service.clearJournal();
    ServiceClient client(m_service.url());
    client.setToken(m_token);
    client.get(QStringLiteral("logins?format=all_fields"));
    client.post(QStringLiteral("password-reset"), QByteArray(R"({"username": "bob@example.com"})"));
    const QList<DevService::ReceivedRequest> journal = m_service.journal();
    QCOMPARE(journal.size(), 2);
    QCOMPARE(journal.at(0).method, QByteArray("GET"));
    QCOMPARE(journal.at(0).path, QByteArray("/api/v1/logins"));
    QCOMPARE(journal.at(0).query, QByteArray("format=all_fields"));
    QCOMPARE(journal.at(0).headers.value("authorization"), "Bearer " + m_token);
    QCOMPARE(journal.at(1).method, QByteArray("POST"));
    QCOMPARE(journal.at(1).headers.value("content-type"), QByteArray("application/json"));
    QCOMPARE(journal.at(1).body, QByteArray(R"({"username": "bob@example.com"})"));
}

QTEST_GUILESS_MAIN(TestDevServiceFaults)
#include "tst_devservice_faults.moc"

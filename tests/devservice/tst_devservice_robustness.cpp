// Bad input never takes the development service down: malformed and wrongly typed bodies, huge
// bodies, unknown paths and methods each get their status, and the service answers on afterwards.

#include "serviceclient.h"

#include <devservice.h>

#include <Vantro/putrequest.h>

#include <QEventLoop>
#include <QLoggingCategory>
#include <QTest>

using vn::devservice::DevService;
using vn::test::Reply;
using vn::test::ServiceClient;

class TestDevServiceRobustness : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void badRequests_data();
    void badRequests();
    void bodyLimit_data();
    void bodyLimit();
    void otherMethods();

private:
    void verifyStillServing();

    DevService m_service;
    QByteArray m_token;
};

void TestDevServiceRobustness::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    m_token = ServiceClient(m_service.url())
                  .login(QStringLiteral("ada@example.com"), QStringLiteral("ada-demo-password"));
    QVERIFY(!m_token.isEmpty());
}

void TestDevServiceRobustness::verifyStillServing()
{
    ServiceClient client(m_service.url());
    client.setToken(m_token);
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 200);
}

void TestDevServiceRobustness::badRequests_data()
{
    QTest::addColumn<QString>("method");
    QTest::addColumn<QString>("path");
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");

    const QString post = QStringLiteral("POST");
    const QString authenticate = QStringLiteral("authenticate");
    QTest::newRow("empty body") << post << authenticate << QByteArray() << 400;
    QTest::newRow("truncated JSON") << post << authenticate
                                    << QByteArray(R"({"authType": "credentials", "user)") << 400;
    QTest::newRow("JSON string") << post << authenticate << QByteArray(R"("credentials")") << 400;
    QTest::newRow("deep nesting") << post << authenticate << QByteArray(100000, '[') << 400;
    QTest::newRow("authType a number") << post << authenticate << QByteArray(R"({"authType": 1})") << 400;
    QTest::newRow("unknown path") << QStringLiteral("GET") << QStringLiteral("nothing/here") << QByteArray()
                                  << 404;
    QTest::newRow("outside the API") << QStringLiteral("GET") << QStringLiteral("../../favicon.ico")
                                     << QByteArray() << 404;
    QTest::newRow("path with escapes")
        << QStringLiteral("GET") << QStringLiteral("consumer%00%2F..") << QByteArray() << 404;
    QTest::newRow("GET authenticate") << QStringLiteral("GET") << authenticate << QByteArray() << 405;
    QTest::newRow("POST consumer") << post << QStringLiteral("consumer") << QByteArray("{}") << 405;
}

void TestDevServiceRobustness::badRequests()
{
    QFETCH(QString, method);
    QFETCH(QString, path);
    QFETCH(QByteArray, body);
    QFETCH(int, status);

    ServiceClient client(m_service.url());
    client.setToken(m_token);
    Reply reply;
    if (method == QLatin1String("POST")) {
        reply = client.post(path, body);
    } else if (method == QLatin1String("GET")) {
        reply = client.get(path);
    } else {
        reply = client.remove(path);
    }
    QCOMPARE(reply.status, status);
    // Every answer, failures included, is a JSON document.
    QVERIFY(reply.parsed);
    verifyStillServing();
}

void TestDevServiceRobustness::bodyLimit_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<int>("resetStatus");
    QTest::addColumn<int>("loginStatus");
    const int limit = int(DevService::DefaultMaximumBodySize);
    QTest::newRow("just below the limit") << limit - 64 << 404 << 400;
    QTest::newRow("just above the limit") << limit + 1 << 413 << 413;
    QTest::newRow("eight times the limit") << limit * 8 << 413 << 413;
}

void TestDevServiceRobustness::bodyLimit()
{
    QFETCH(int, size);
    QFETCH(int, resetStatus);
    QFETCH(int, loginStatus);

    // A user name that long names nobody, and without "authType" no login is tried.
    QByteArray body = R"({"username": ")";
    body.append(QByteArray(size - body.size() - 2, 'a')).append("\"}");
    QCOMPARE(body.size(), size);
    ServiceClient client(m_service.url());
    QCOMPARE(client.post(QStringLiteral("password-reset"), body).status, resetStatus);
    QCOMPARE(client.post(QStringLiteral("authenticate"), body).status, loginStatus);
    verifyStillServing();
}

void TestDevServiceRobustness::otherMethods()
{
    // A PUT reaches no endpoint of the API: 405 where the path exists, 404 elsewhere.
    QNetworkAccessManager network;
    auto put = [&](const QString &path) {
        ServiceClient client(m_service.url());
        auto *request = new vn::PutRequest(QNetworkRequest(client.url(path)), &network, QJsonObject());
        request->setSuppressErrors(true);
        int status = 0;
        QEventLoop loop;
        connect(request, &vn::Request::finished, &loop, [&] {
            status = request->responseCode();
            loop.quit();
        });
        loop.exec();
        return status;
    };
    QCOMPARE(put(QStringLiteral("logins/current")), 405);
    QCOMPARE(put(QStringLiteral("no-such-thing")), 404);
    verifyStillServing();
}

QTEST_GUILESS_MAIN(TestDevServiceRobustness)
#include "tst_devservice_robustness.moc"

#include <VantroNetwork/authorizationregistry.h>
#include <VantroNetwork/bearerauthorization.h>

#include <QtTest>

using namespace vn::network;

class TestAuthorizationRegistry : public QObject
{
    Q_OBJECT
private Q_SLOTS:
    void decision_data()
    {
        QTest::addColumn<QStringList>("olderHosts");
        QTest::addColumn<QStringList>("newerHosts");
        QTest::addColumn<QUrl>("url");
        QTest::addColumn<QByteArray>("expected");

        const QStringList none;
        const QByteArray older = "Bearer older";
        const QByteArray newer = "Bearer newer";
        const auto url = [](const char *text) { return QUrl(QString::fromLatin1(text)); };

        QTest::newRow("https, exact host")
            << QStringList{"example.com"} << none << url("https://example.com/x") << older;
        QTest::newRow("https, other port")
            << QStringList{"example.com"} << none << url("https://example.com:8443/") << older;
        QTest::newRow("registered in capitals")
            << QStringList{"API.Example.COM"} << none << url("https://api.example.com/") << older;
        QTest::newRow("requested in capitals")
            << QStringList{"api.example.com"} << none << url("HTTPS://API.EXAMPLE.COM/") << older;
        QTest::newRow("second of two hosts")
            << QStringList{"a.test", "b.test"} << none << url("https://b.test/") << older;
        QTest::newRow("https to a remote address")
            << QStringList{"10.0.0.1"} << none << url("https://10.0.0.1/") << older;
        QTest::newRow("subdomain") << QStringList{"example.com"} << none << url("https://api.example.com/")
                                   << QByteArray();
        QTest::newRow("parent domain")
            << QStringList{"api.example.com"} << none << url("https://example.com/") << QByteArray();
        QTest::newRow("name ending alike")
            << QStringList{"example.com"} << none << url("https://badexample.com/") << QByteArray();
        QTest::newRow("name followed by another domain")
            << QStringList{"example.com"} << none << url("https://example.com.attacker.test/")
            << QByteArray();
        QTest::newRow("wildcard is literal")
            << QStringList{"*.example.com"} << none << url("https://a.example.com/") << QByteArray();

        QTest::newRow("http to a remote host")
            << QStringList{"example.com"} << none << url("http://example.com/") << QByteArray();
        QTest::newRow("http to a private address")
            << QStringList{"10.0.0.1"} << none << url("http://10.0.0.1/") << QByteArray();
        QTest::newRow("http to 128.0.0.1")
            << QStringList{"128.0.0.1"} << none << url("http://128.0.0.1/") << QByteArray();
        QTest::newRow("http to 127.0.0.1")
            << QStringList{"127.0.0.1"} << none << url("http://127.0.0.1:8421/api") << older;
        QTest::newRow("http to 127.255.255.254")
            << QStringList{"127.255.255.254"} << none << url("http://127.255.255.254/") << older;
        QTest::newRow("http to ::1") << QStringList{"::1"} << none << url("http://[::1]:8080/") << older;
        QTest::newRow("http to localhost")
            << QStringList{"LocalHost"} << none << url("http://localhost/") << older;
        QTest::newRow("http to a name starting with localhost")
            << QStringList{"localhost.example.com"} << none << url("http://localhost.example.com/")
            << QByteArray();
        QTest::newRow("other scheme")
            << QStringList{"example.com"} << none << url("ftp://example.com/") << QByteArray();
        QTest::newRow("websocket to loopback")
            << QStringList{"127.0.0.1"} << none << url("ws://127.0.0.1/") << QByteArray();

        QTest::newRow("empty host registered, https")
            << QStringList{""} << none << url("https://example.com/") << QByteArray();
        QTest::newRow("empty host registered, no host")
            << QStringList{""} << none << url("file:///tmp/x") << QByteArray();
        QTest::newRow("relative URL") << QStringList{""} << none << url("/api/v1/") << QByteArray();

        QTest::newRow("newest wins") << QStringList{"example.com"} << QStringList{"EXAMPLE.com"}
                                     << url("https://example.com/") << newer;
        QTest::newRow("older one where the newer does not match")
            << QStringList{"example.com"} << QStringList{"other.test"} << url("https://example.com/")
            << older;
    }

    void decision()
    {
        QFETCH(QStringList, olderHosts);
        QFETCH(QStringList, newerHosts);
        QFETCH(QUrl, url);
        QFETCH(QByteArray, expected);

        AuthorizationRegistry registry;
        registry.add(new BearerAuthorization(olderHosts, "older"));
        if (!newerHosts.isEmpty()) {
            registry.add(new BearerAuthorization(newerHosts, "newer"));
        }

        QCOMPARE(registry.hasAuthorization(url), !expected.isEmpty());
        QNetworkRequest request(url);
        QCOMPARE(registry.authorize(request, "GET", QByteArray()), !expected.isEmpty());
        QCOMPARE(request.rawHeader("Authorization"), expected);
    }

    void handleDeleterWithdrawsAndDeletes()
    {
        auto registry = std::make_shared<AuthorizationRegistry>();
        AuthorizationHandle first(registry->add(new BearerAuthorization({"example.com"}, "first")),
                                  HandleDeleter(registry));
        {
            AuthorizationHandle second(registry->add(new BearerAuthorization({"example.com"}, "second")),
                                       HandleDeleter(registry));
            QCOMPARE(registry->count(), 2);
        }
        QCOMPARE(registry->count(), 1);
        QNetworkRequest request(QUrl(QStringLiteral("https://example.com/")));
        QVERIFY(registry->authorize(request, "GET", QByteArray()));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer first"));

        // The handle keeps its registry alive after everyone else has let go of it.
        std::weak_ptr<AuthorizationRegistry> watcher = registry;
        registry.reset();
        QVERIFY(!watcher.expired());
        QCOMPARE(watcher.lock()->count(), 1);
        first = AuthorizationHandle();
        QVERIFY(watcher.expired());
    }

    void handleDeleterLeavesWhatWasTakenBack()
    {
        auto registry = std::make_shared<AuthorizationRegistry>();
        AuthorizationHandle handle(registry->add(new BearerAuthorization({"example.com"}, "token")),
                                   HandleDeleter(registry));
        std::unique_ptr<Authorization> takenBack = registry->remove(handle.get());
        QCOMPARE(takenBack.get(), handle.get());
        QCOMPARE(registry->count(), 0);
        QVERIFY(!registry->remove(handle.get()));

        // A second delete would be caught by the sanitizer build.
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("was not registered")));
        handle.reset();
        QCOMPARE(takenBack->hosts(), QStringList{"example.com"});
    }

    void addingTwiceRegistersOnce()
    {
        AuthorizationRegistry registry;
        Authorization *authorization = registry.add(new BearerAuthorization({"example.com"}, "token"));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("already registered")));
        QCOMPARE(registry.add(authorization), authorization);
        QCOMPARE(registry.count(), 1);
        QVERIFY(!registry.add(nullptr));
        QCOMPARE(registry.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestAuthorizationRegistry)
#include "tst_authorizationregistry.moc"

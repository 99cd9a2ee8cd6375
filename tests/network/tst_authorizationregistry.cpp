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
        QTest::addColumn<QString>("hosts"); // of the older authorization, comma-separated
        QTest::addColumn<QString>("newer"); // hosts of a newer one, if any
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("winner");  // whose token is written, if any
        QTest::addColumn<QVariant>("origin"); // Authorization::originHost(url), where the row says

        const auto row = [](const char *name, const char *hosts, const char *url, const char *winner,
                            const char *newer = "", const char *origin = nullptr) {
            QTest::newRow(name) << hosts << newer << url << winner
                                << (origin ? QVariant(QString::fromUtf8(origin)) : QVariant());
        };
        row("https, exact host, any port", "example.com", "https://example.com:8443/x", "older", "",
            "example.com:8443");
        row("second of two hosts", "a.test,b.test", "https://b.test/", "older");
        row("subdomain", "example.com", "https://api.example.com/", "");
        row("parent domain", "api.example.com", "https://example.com/", "");
        row("name followed by another domain", "example.com", "https://example.com.attacker.test/", "");
        row("http to a remote host", "example.com", "http://example.com/", "");
        row("account origin", "127.0.0.1:8421", "http://127.0.0.1:8421/api", "older", "", "127.0.0.1:8421");
        row("account origin, next port", "127.0.0.1:8421", "http://127.0.0.1:8422/api", "");
        row("http to 127.255.255.254", "127.255.255.254", "http://127.255.255.254/", "older");
        row("http to ::1, any port", "::1", "http://[::1]:8080/", "older");
        row("[::1] with its port", "[::1]:8080", "http://[::1]:8080/", "older", "", "[::1]:8080");
        row("[::1] on another port", "[::1]:8080", "http://[::1]:8081/", "");
        row("https implies 443", "example.com:443", "https://example.com/", "older", "", "example.com:443");
        row("http implies 80", "localhost:80", "http://LocalHost/x", "older", "", "localhost:80");
        row("80 is not https's port", "example.com:80", "https://example.com/", "");
        row("malformed port", "example.com:https", "https://example.com/", "");
        row("http to localhost", "LocalHost", "http://localhost/", "older");
        row("http to a name starting with localhost", "localhost.example.com",
            "http://localhost.example.com/", "");
        row("websocket to loopback", "127.0.0.1", "ws://127.0.0.1/", "", "", "");
        row("empty host, https without host", "", "https:///x", "", "", "");
        row("newest wins", "example.com", "https://example.com/", "newer", "EXAMPLE.com");
        row("older where the newer does not match", "example.com", "https://example.com/", "older",
            "other.test");
        row("newer for another port of the host", "127.0.0.1:8421", "http://127.0.0.1:8421/", "older",
            "127.0.0.1:9000");
    }

    void decision()
    {
        QFETCH(QString, hosts);
        QFETCH(QString, newer);
        QFETCH(QString, url);
        QFETCH(QString, winner);
        QFETCH(QVariant, origin);

        if (origin.isValid()) {
            QCOMPARE(Authorization::originHost(QUrl(url)), origin.toString());
        }
        AuthorizationRegistry registry;
        registry.add(new BearerAuthorization(hosts.split(QLatin1Char(',')), "older"));
        if (!newer.isEmpty()) {
            registry.add(new BearerAuthorization(newer.split(QLatin1Char(',')), "newer"));
        }
        QNetworkRequest request{QUrl(url)};
        QCOMPARE(registry.hasAuthorization(request.url()), !winner.isEmpty());
        QCOMPARE(registry.authorize(request, "GET", QByteArray()), !winner.isEmpty());
        QCOMPARE(request.rawHeader("Authorization"),
                 winner.isEmpty() ? QByteArray() : "Bearer " + winner.toUtf8());
    }

    void handles()
    {
        auto registry = std::make_shared<AuthorizationRegistry>();
        const auto handle = [&registry](const QByteArray &token) {
            return AuthorizationHandle(registry->add(new BearerAuthorization({"example.com"}, token)),
                                       HandleDeleter(registry));
        };
        AuthorizationHandle first = handle("first");
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("already registered")));
        registry->add(first.get()); // held once all the same, or it would be deleted twice
        handle("second").reset();
        QCOMPARE(registry->count(), 1);
        QNetworkRequest request(QUrl(QStringLiteral("https://example.com/")));
        QVERIFY(registry->authorize(request, "GET", QByteArray()));
        QCOMPARE(request.rawHeader("Authorization"), QByteArray("Bearer first"));

        {
            // Taken back, it belongs to whoever took it: the handle must not delete it as well.
            AuthorizationHandle third = handle("third");
            const std::unique_ptr<Authorization> takenBack = registry->remove(third.get());
            QCOMPARE(takenBack.get(), third.get());
            QTest::ignoreMessage(QtWarningMsg, QRegularExpression(QStringLiteral("was not registered")));
            third.reset();
        }

        // A handle keeps its registry alive after everyone else has let go of it.
        const std::weak_ptr<AuthorizationRegistry> watcher = registry;
        registry.reset();
        QCOMPARE(watcher.lock()->count(), 1);
        first = AuthorizationHandle();
        QVERIFY(watcher.expired());
    }
};

QTEST_GUILESS_MAIN(TestAuthorizationRegistry)
#include "tst_authorizationregistry.moc"

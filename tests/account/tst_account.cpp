// The account core against the development service in-process, served below a base path.

#include "accountfixture.h"

#include <VantroAccount/consumer.h>
#include <VantroAccount/resource.h>

using namespace vn::account;
using Errors = QList<Account::Error>;
using Statuses = QList<Account::Status>;

// The account's schedule two thousand times as fast: online checks every 15 ms, consumer every 300.
static constexpr double FastPace = 0.0005;
// What a persistent login keeps in the profile besides the client's identity.
static const QSet<QString> Saved{"accessToken", "sessionInfo", "consumerInfo", "identity", "resources"};

class TestAccount : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;
    QString m_clientId;
    QByteArray m_clientKey;

    // Ends the login at the service, with nothing left and the refresh stopped.
    void signOut(Account &account)
    {
        QSignalSpy errors(&account, &Account::error);
        m_fixture.service.clearJournal();
        account.logout();
        QTRY_VERIFY(AccountFixture::isSignedOut(account));
        QCOMPARE(errors.size(), 0);
        QCOMPARE(m_fixture.countRequests("DELETE", "/logins/current"), 1);
        QVERIFY(QAbstractEventDispatcher::instance()
                    ->registeredTimers(AccountInstance::shared().get())
                    .isEmpty());
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(FastPace, QStringLiteral("/base")));
        // A fresh profile: the client's identity is made here, and every later restore must find it.
        Account::profile().deleteEntry(QStringLiteral("clientId"));
        Account::profile().deleteEntry(QStringLiteral("clientKey"));
        const Account account;
        m_clientId = account.clientId();
        m_clientKey = account.clientKey().toPEM();
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(m_clientId).hasMatch());
        QCOMPARE(account.clientKey().bits(), 2048);
    }

    void cleanup() { m_fixture.service.clearFaults(); }

    // How a login ends: the statuses it passes, its errors, and what it keeps in the profile once
    // the refresh has brought the service's records.
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("persistent");
        QTest::addColumn<Account::Status>("status");
        QTest::addColumn<Errors>("errors");
        QTest::addColumn<QString>("logged"); // the critical line
        QTest::addColumn<QSet<QString>>("saved");

        const auto row = [](const char *name, const QString &user, const QString &password, bool persistent,
                            Account::Status status, const Errors &errors, const char *logged,
                            const QSet<QString> &saved) {
            QTest::newRow(name) << user << password << persistent << status << errors << QString(logged)
                                << saved;
        };
        row("persistent", demo::Ada, demo::AdaPassword, true, Account::Connected, {}, "", Saved);
        row("this session only", demo::Ada, demo::AdaPassword, false, Account::Connected, {}, "", {});
        row("wrong password", demo::Ada, "wrong", true, Account::Disconnected,
            {Account::AuthenticationFailed}, "Authentication failed with status 2", {});
        row("no user name", ">>", demo::AdaPassword, true, Account::Disconnected, {Account::InvalidLoginData},
            "Authentication failed with status 3", {});
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(QString, password);
        QFETCH(bool, persistent);
        QFETCH(Account::Status, status);
        QFETCH(Errors, errors);
        QFETCH(QString, logged);
        QFETCH(QSet<QString>, saved);

        if (!logged.isEmpty()) {
            QTest::ignoreMessage(QtCriticalMsg, qPrintable(logged));
        }
        Account account;
        Statuses seen;
        Errors reported;
        connect(&account, &Account::statusChanged, this, [&] { seen.append(account.status()); });
        connect(&account, &Account::error, this, [&](Account::Error error) { reported.append(error); });
        vn::account::CredentialAuthenticator authenticator;
        authenticator.setUserName(userName);
        authenticator.setPassword(password);
        authenticator.setPersistent(persistent);
        account.login(&authenticator);
        QTRY_COMPARE(seen.size(), 2);
        QCOMPARE(seen, Statuses({Account::Connecting, status}));
        QCOMPARE(reported, errors);
        QTRY_VERIFY(account.status() == Account::Disconnected ||
                    (account.session() && account.consumer() && account.identity() &&
                     !account.resourceList().isEmpty()));
        QCOMPARE(AccountFixture::profileEntries() - AccountFixture::ClientIdentity, saved);
        if (account.status() == Account::Connected) {
            signOut(account);
        }
        QVERIFY(AccountFixture::isSignedOut(account));
    }

    // The login goes online before any online check, and its first refresh brings the records with
    // the token on every request but the login's own.
    void firstRefresh()
    {
        Account account;
        QList<int> checksWhenOnline;
        connect(&account, &Account::onlineChanged, this,
                [&] { checksWhenOnline.append(m_fixture.countRequests("GET", "/logins/current")); });
        m_fixture.service.clearJournal();
        QVERIFY(AccountFixture::connect(account, false));
        QCOMPARE(checksWhenOnline, QList<int>({0}));
        // The session comes with the first online check's answer, which may follow the records.
        QTRY_VERIFY(account.session());
        QVERIFY(account.identity()->verifyChain());
        QCOMPARE(account.resourceList().size(), 9);
        QByteArrayList authorizations; // of each kind of request
        const QByteArray token(account.accessToken());
        for (const auto &request : m_fixture.service.journal()) {
            QByteArray authorization = request.headers.value("authorization");
            authorizations.append(QByteArray(request.method + ' ' + request.path.mid(13) + ' ' +
                                             authorization.replace(token, "<token>"))
                                      .trimmed());
        }
        std::sort(authorizations.begin(), authorizations.end());
        authorizations.erase(std::unique(authorizations.begin(), authorizations.end()), authorizations.end());
        QCOMPARE(authorizations, QByteArrayList({"GET account/identity Bearer <token>",
                                                 "GET consumer Bearer <token>", "GET entitled Bearer <token>",
                                                 "GET logins/current Bearer <token>", "POST authenticate"}));
        signOut(account);
    }

    // What a new Account restores from the profile once every Account is gone.
    void restore_data()
    {
        QTest::addColumn<bool>("persistent");
        QTest::addColumn<Account::Status>("status");
        QTest::addColumn<int>("resources");
        QTest::newRow("persistent") << true << Account::Connected << 9;
        QTest::newRow("this session only") << false << Account::Disconnected << 0;
    }

    void restore()
    {
        QFETCH(bool, persistent);
        QFETCH(Account::Status, status);
        QFETCH(int, resources);

        {
            Account account;
            QVERIFY(AccountFixture::connect(account, persistent));
            QTRY_VERIFY(account.session()); // saved with the first online check's answer
        }
        Account next;
        QCOMPARE(next.clientId(), m_clientId);
        QCOMPARE(next.clientKey().toPEM(), m_clientKey);
        QCOMPARE(next.status(), status);
        QCOMPARE(next.resourceList().size(), resources);
        QCOMPARE(next.session() && next.consumer() && next.identity() && next.identity()->verifyChain(),
                 persistent);
        if (persistent) {
            signOut(next);
        }
    }

    // A login under way refuses another login and a logout; a connected account, another login.
    void busy()
    {
        // Two views of the one account: what the first does, the second sees.
        Account first;
        Account second;
        Errors errors;
        connect(&second, &Account::error, this, [&errors](Account::Error error) { errors.append(error); });
        vn::account::CredentialAuthenticator authenticator;
        AccountFixture::asAda(authenticator);
        first.login(&authenticator);
        vn::account::CredentialAuthenticator intruder;
        QSignalSpy intruderFinished(&intruder, &vn::account::AbstractAuthenticator::finished);
        second.login(&intruder);
        second.logout();
        QTRY_COMPARE(first.status(), Account::Connected);
        second.login(&intruder);
        QCOMPARE(errors, Errors({Account::AlreadyBusy, Account::NotLoggedIn, Account::AlreadyLoggedIn}));
        QCOMPARE(intruderFinished.size(), 0);
        signOut(first);
    }

    // The same answers again keep identity and resources; offline, only the online check goes on.
    void refresh()
    {
        Account account;
        QVERIFY(AccountFixture::connect(account, false));
        const auto identity = account.identity();
        const auto resources = account.resourceList();
        QSignalSpy identityChanged(&account, &Account::identityChanged);
        QSignalSpy resourcesChanged(&account, &Account::resourcesChanged);
        m_fixture.service.clearJournal();
        // A task sends again only once its last answer has been handled.
        QTRY_VERIFY_WITH_TIMEOUT(m_fixture.countRequests("GET", "/identity") > 1 &&
                                     m_fixture.countRequests("GET", "/entitled") > 1,
                                 10000);
        QCOMPARE(account.identity(), identity);
        QCOMPARE(account.resourceList(), resources);
        QCOMPARE(identityChanged.size() + resourcesChanged.size(), 0);

        QSignalSpy onlineChanged(&account, &Account::onlineChanged);
        QTest::ignoreMessage(QtCriticalMsg, "Online check failed with server error status 503");
        m_fixture.addFault(QStringLiteral("logins/current"), "GET", 503, 1000);
        QTRY_VERIFY(!onlineChanged.isEmpty());
        // Ten checks for any request under way to arrive, then sixty (900 ms, past every refresh).
        QVERIFY(m_fixture.waitOnlineChecks(10));
        m_fixture.service.clearJournal();
        QVERIFY(m_fixture.waitOnlineChecks(60));
        QCOMPARE(account.status(), Account::Connected);
        QVERIFY(!account.isOnline());
        QCOMPARE(m_fixture.service.journal().size(), m_fixture.countRequests("GET", "/logins/current"));
        m_fixture.service.clearFaults();
        QTRY_VERIFY(account.isOnline());
        QCOMPARE(onlineChanged.size(), 2);
    }

    // Requests of the helpers and of the updates on demand, and the resource lookups.
    void facade()
    {
        // At the real pace, the requests under test are the only ones the service receives meanwhile.
        vn::account::TimeScale::setFactor(1.0);
        const auto restorePace = qScopeGuard([] { vn::account::TimeScale::setFactor(FastPace); });
        Account account;
        QVERIFY(AccountFixture::connect(account, false));
        QSignalSpy consumerChanged(&account, &Account::consumerChanged);
        m_fixture.service.clearJournal();
        const QJsonArray array{QJsonObject{{"name", "value"}}, 2};
        const QUrl elsewhere(
            QStringLiteral("http://localhost:%1/base/api/v1/logins").arg(m_fixture.service.port()));
        account.getRequest(elsewhere);
        const QUrl echo(QStringLiteral("echo"));
        account.postRequest(echo, array);
        account.patchRequest(echo, array,
                             {{"Content-Type", "application/json-patch+json"}, {"X-Trace", "7"}});
        account.updateConsumer();
        account.updateResources();
        QTRY_COMPARE(m_fixture.service.journal().size(), 5);
        QTRY_COMPARE(consumerChanged.size(), 1);
        QMap<QByteArray, vn::devservice::DevService::ReceivedRequest> received;
        for (const auto &request : m_fixture.service.journal()) {
            received.insert(request.method + ' ' + request.path, request);
        }
        QCOMPARE(received.keys(), QByteArrayList({"GET /base/api/v1/consumer", "GET /base/api/v1/entitled",
                                                  "GET /base/api/v1/logins", "PATCH /base/api/v1/echo",
                                                  "POST /base/api/v1/echo"}));
        // An absolute URL is used unchanged; another name for the same machine gets no token.
        const auto &get = received["GET /base/api/v1/logins"];
        QCOMPARE(get.headers.value("host"), elsewhere.authority().toUtf8());
        QCOMPARE(get.headers.value("authorization"), QByteArray());
        const auto &post = received["POST /base/api/v1/echo"];
        QCOMPARE(post.headers.value("content-type"), "application/json");
        QCOMPARE(post.body, QJsonDocument(array).toJson(QJsonDocument::Indented));
        // The helper's own headers come after the content type, and so replace it.
        const auto &patch = received["PATCH /base/api/v1/echo"];
        QCOMPARE(patch.headers.value("content-type"), "application/json-patch+json");
        QCOMPARE(patch.headers.value("x-trace"), "7");
        QCOMPARE(patch.body, QJsonDocument(array).toJson(QJsonDocument::Compact));

        QStringList found; // in list order
        for (const vn::account::Resource *resource :
             account.findResources("vantro.resource.AuthorCredentials")) {
            found.append(resource->uuid());
        }
        QCOMPARE(found,
                 QStringList({"00f5f814-d4be-4420-84b2-ac1ad964525f", "3b833387-2d19-48ba-b520-a37710ee622c",
                              "74a44b1f-f2a7-4999-bdee-046c09fb0500"}));
        QVERIFY(account.findResources("vantro.resource.authorcredentials").isEmpty());
        QQmlListProperty<vn::account::Resource> list = account.resources();
        QCOMPARE(list.count(&list), 9);
        QCOMPARE(list.at(&list, 1), account.resourceList().at(1));
    }
};

QTEST_GUILESS_MAIN(TestAccount)
#include "tst_account.moc"

// The account core against the development service in-process, served below a base path: the
// client's own identity, every outcome of a login, the refresh that follows, the restore from the
// profile, a logout that always ends signed out, the online check, and the facade's requests.

#include "accountfixture.h"
#include "timescale_p.h"

#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/resource.h>

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QTest>

using vn::account::Account;
using Errors = QList<Account::Error>;
using F = AccountFixture;

// The account's schedule two thousand times as fast: refreshes come within a second.
static constexpr double FastPace = 0.0005;

class TestAccount : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;
    QString m_clientId;
    QByteArray m_clientKey;
    int m_ticks = 0; // of the refresh timer, on any account instance

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        m_ticks += event->type() == QEvent::Timer && watched->inherits("vn::account::AccountInstance");
        return false;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(FastPace, QStringLiteral("/base")));
        QCoreApplication::instance()->installEventFilter(this);
        // The service's own demo, with one forged resource among the nine genuine ones.
        QFile demo(QStringLiteral(":/vantro-devservice/demo/scenario.json"));
        QVERIFY(demo.open(QIODevice::ReadOnly));
        QJsonObject document = QJsonDocument::fromJson(demo.readAll()).object();
        QJsonArray resources = document.value(QLatin1String("resources")).toArray();
        resources.append(QJsonObject{{"id", "0e3c7a52-4f0e-4c55-9a8e-6f2d1b7c9e01"},
                                     {"type", "vantro.resource.Database"},
                                     {"tampered", true}});
        document.insert(QStringLiteral("resources"), resources);
        QVERIFY(m_fixture.service.setScenario(
            vn::devservice::Scenario::fromJson(document, QStringLiteral(":/vantro-devservice/demo"))));

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

    // A login of Ada is restored by a new instance once every Account is gone, and then ends: by a
    // logout, answered with "logoutFault", or at the service (401), found by the online check.
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("persistent");
        QTest::addColumn<int>("fault");
        QTest::addColumn<Account::Error>("expected");
        QTest::addColumn<int>("logoutFault");
        QTest::addColumn<Account::Error>("logoutError");

        const auto ada = [](const char *name, bool persistent, int logoutFault, Account::Error logoutError) {
            QTest::newRow(name) << F::Ada << F::AdaPassword << persistent << 0 << Account::NoError
                                << logoutFault << logoutError;
        };
        const auto refused = [](const char *name, const QString &userName, const QString &password, int fault,
                                Account::Error expected) {
            QTest::newRow(name) << userName << password << true << fault << expected << 0 << Account::NoError;
        };
        ada("persistent", true, 0, Account::NoError);
        ada("persistent, service down at logout", true, F::Dropped, Account::ServiceUnavailable);
        ada("persistent, service error at logout", true, 500, Account::ServiceFailure);
        ada("persistent, ended at the service", true, 401, Account::NoError);
        ada("this session only", false, 0, Account::NotLoggedIn);
        refused("wrong password", F::Ada, "wrong", 0, Account::AuthenticationFailed);
        refused("impersonation refused", "bob@example.com>>ada@example.com", "bob-demo-password", 0,
                Account::AuthenticationFailed);
        refused("no user name", ">>", F::AdaPassword, 0, Account::InvalidLoginData);
        refused("service error", F::Ada, F::AdaPassword, 503, Account::ServiceFailure);
        refused("request refused", F::Ada, F::AdaPassword, 404, Account::AuthenticationFailed);
        refused("dropped connection", F::Ada, F::AdaPassword, F::Dropped, Account::ServiceUnavailable);
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(QString, password);
        QFETCH(bool, persistent);
        QFETCH(int, fault);
        QFETCH(Account::Error, expected);
        QFETCH(int, logoutFault);
        QFETCH(Account::Error, logoutError);

        const bool connected = expected == Account::NoError;
        if (!connected) {
            QTest::ignoreMessage(QtCriticalMsg,
                                 QRegularExpression("^Authentication failed with status [2-6]$"));
        }
        m_fixture.addFault(QStringLiteral("authenticate"), "POST", fault);
        m_fixture.service.clearJournal();
        // Two views of the one account: what the first does, the second sees.
        auto first = std::make_unique<Account>();
        auto second = std::make_unique<Account>();
        QList<Account::Status> seen;
        Errors errors;
        connect(second.get(), &Account::statusChanged, this, [&] { seen.append(second->status()); });
        connect(second.get(), &Account::error, this,
                [&errors](Account::Error error) { errors.append(error); });
        vn::account::CredentialAuthenticator authenticator;
        authenticator.setUserName(userName);
        authenticator.setPassword(password);
        authenticator.setPersistent(persistent);
        first->login(&authenticator);
        bool online = false; // as the login ends, before the online check could have made it so
        connect(&authenticator, &vn::account::AbstractAuthenticator::finished, this,
                [&] { online = second->isOnline(); });
        // Neither another login nor a logout disturbs a login under way (one refused at once is over).
        vn::account::CredentialAuthenticator intruder;
        QSignalSpy intruderFinished(&intruder, &vn::account::AbstractAuthenticator::finished);
        const bool underWay = expected != Account::InvalidLoginData;
        if (underWay) {
            second->login(&intruder);
        }
        second->logout();
        QTRY_VERIFY(first->status() != Account::Connecting);
        if (connected) {
            second->login(&intruder);
        }
        QCOMPARE(seen, QList<Account::Status>(
                           {Account::Connecting, connected ? Account::Connected : Account::Disconnected}));
        const Errors expectedErrors{Account::AlreadyBusy, Account::NotLoggedIn,
                                    connected ? Account::AlreadyLoggedIn : expected};
        QCOMPARE(errors, underWay ? expectedErrors : Errors({expected, Account::NotLoggedIn}));
        QCOMPARE(intruderFinished.size(), 0);
        QCOMPARE(online, connected);

        if (connected) {
            QTRY_VERIFY(second->consumer() && second->identity() && second->session() &&
                        !second->resourceList().isEmpty());
            QVERIFY(second->identity()->verifyChain());
            QCOMPARE(second->resourceList().size(), 9); // of the ten offered: not the forged one
            const QByteArray bearer = "Bearer " + QByteArray(first->accessToken());
            for (const auto &request : m_fixture.service.journal()) {
                QCOMPARE(request.headers.value("authorization"),
                         request.path.endsWith("/authenticate") ? QByteArray() : bearer);
            }
        }
        const QSet<QString> refreshed{"accessToken", "sessionInfo", "consumerInfo", "identity", "resources"};
        QCOMPARE(F::profileEntries(),
                 F::ClientIdentity + (connected && persistent ? refreshed : QSet<QString>()));
        if (!connected) {
            return;
        }

        first.reset();
        second.reset();
        Account restored;
        QCOMPARE(restored.clientId(), m_clientId);
        QCOMPARE(restored.clientKey().toPEM(), m_clientKey);
        QCOMPARE(restored.status(), persistent ? Account::Connected : Account::Disconnected);
        QVERIFY(!persistent || (restored.session() && restored.consumer() && restored.identity() &&
                                restored.identity()->verifyChain() && restored.resourceList().size() == 9));

        const bool endedAtService = logoutFault == 401;
        if (endedAtService) {
            QTest::ignoreMessage(QtInfoMsg, "Current session expired or revoked - disconnecting");
        } else if (logoutFault) {
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Logout failed"));
        }
        m_fixture.addFault(QStringLiteral("logins/current"), endedAtService ? "GET" : "DELETE", logoutFault);
        m_fixture.service.clearJournal();
        errors.clear();
        connect(&restored, &Account::error, this, [&errors](Account::Error error) { errors.append(error); });
        if (!endedAtService) {
            restored.logout();
        }
        QTRY_VERIFY(F::isSignedOut(restored));
        QCOMPARE(errors, logoutError == Account::NoError ? Errors() : Errors{logoutError});
        QCOMPARE(m_fixture.countRequests("DELETE", "/logins/current") > 0, persistent && !endedAtService);
        m_ticks = 0;
        QTest::qWait(50); // fifty ticks, had the timer kept running
        QCOMPARE(m_ticks, 0);
    }

    // The refresh of a connected account: the same answers again, then an online check that fails.
    void refresh()
    {
        Account account;
        QVERIFY(F::connect(account, false));
        // The same answers again: identity and resources stay the very objects, while a consumer
        // record with the same identifier replaces its object.
        const auto identity = account.identity();
        const auto resources = account.resourceList();
        QSignalSpy consumerReplaced(account.consumer(), &QObject::destroyed);
        QSignalSpy identityChanged(&account, &Account::identityChanged);
        QSignalSpy resourcesChanged(&account, &Account::resourcesChanged);
        m_fixture.service.clearJournal();
        // A task sends again only once its last answer has been handled.
        QTRY_VERIFY_WITH_TIMEOUT(m_fixture.countRequests("GET", "/identity") > 1 &&
                                     m_fixture.countRequests("GET", "/entitled") > 1,
                                 10000);
        QVERIFY(consumerReplaced.size() == 1 && account.consumer());
        QCOMPARE(account.identity(), identity);
        QCOMPARE(account.resourceList(), resources);
        QCOMPARE(identityChanged.size() + resourcesChanged.size(), 0);

        QSignalSpy onlineChanged(&account, &Account::onlineChanged);
        QTest::ignoreMessage(QtCriticalMsg, "Online check failed with server error status 503");
        m_fixture.addFault(QStringLiteral("logins/current"), "GET", 503, 1000);
        QTRY_VERIFY(!onlineChanged.isEmpty());
        QCOMPARE(account.status(), Account::Connected);
        // Offline for longer than consumer and resources take to come due again (once any request
        // already under way has arrived).
        QTest::qWait(250);
        m_fixture.service.clearJournal();
        QTest::qWait(600);
        QVERIFY(!account.isOnline());
        QCOMPARE(m_fixture.countRequests("GET", "/consumer") + m_fixture.countRequests("GET", "/identity") +
                     m_fixture.countRequests("GET", "/entitled"),
                 0);
        m_fixture.service.clearFaults();
        QTRY_VERIFY(account.isOnline());
        QCOMPARE(onlineChanged.size(), 2);

        // Offline once more, and back through an answer that does not parse: online, but silently.
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression("^Failed to parse session data "));
        m_fixture.addFault(QStringLiteral("logins/current"), "GET", 503, 3);
        m_fixture.addFault(QStringLiteral("logins/current"), "GET", F::Malformed);
        QTRY_COMPARE(onlineChanged.size(), 3);
        QTRY_VERIFY(account.isOnline());
        QCOMPARE(onlineChanged.size(), 3);
    }

    // Requests of the helpers and of the updates on demand, and the resource lookups.
    void facade()
    {
        // At the real pace, the requests under test are the only ones the service receives meanwhile.
        vn::account::TimeScale::setFactor(1.0);
        const auto restorePace = qScopeGuard([] { vn::account::TimeScale::setFactor(FastPace); });
        Account account;
        QVERIFY(F::connect(account, false));
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
        QTRY_COMPARE(consumerChanged.size(), 1); // a record of the same consumer replaces its object
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

        const QString type = QStringLiteral("vantro.resource.AuthorCredentials");
        const QList<vn::account::Resource *> found = account.findResources(type);
        QCOMPARE(found.size(), 3);
        for (int index = 0; index < found.size(); ++index) { // the matching ones, in list order
            QCOMPARE(found[index]->type(), type);
            QVERIFY(index == 0 || account.resourceList().indexOf(found[index - 1]) <
                                      account.resourceList().indexOf(found[index]));
        }
        QVERIFY(account.findResources(type.toLower()).isEmpty());
        QQmlListProperty<vn::account::Resource> list = account.resources();
        QCOMPARE(list.count(&list), account.resourceList().size());
        QCOMPARE(list.at(&list, 1), account.resourceList().at(1));
    }
};

QTEST_GUILESS_MAIN(TestAccount)
#include "tst_account.moc"

// The account's life against the development service in-process: the client's own identity, every
// outcome of a login, the restore from the profile, and a logout that always ends signed out.

#include "accountfixture.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/profile.h>

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using vn::account::Account;
using vn::account::CredentialAuthenticator;
using F = AccountFixture;

class TestAccountLifecycle : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;

private slots:
    void initTestCase() { QVERIFY(m_fixture.start(1.0)); }

    void cleanup()
    {
        m_fixture.service.clearFaults();
        m_fixture.service.clearJournal();
    }

    void clientIdentityIsMadeOnceAndKept()
    {
        Account::profile().deleteEntry(QStringLiteral("clientId"));
        Account::profile().deleteEntry(QStringLiteral("clientKey"));
        auto account = std::make_unique<Account>();
        const QString id = account->clientId();
        const QByteArray key = account->clientKey().toPEM();
        QVERIFY(QRegularExpression(QStringLiteral("^[0-9a-f]{32}$")).match(id).hasMatch());
        QCOMPARE(account->clientKey().bits(), 2048);
        QVERIFY(F::connect(*account) && F::logout(*account));
        account = std::make_unique<Account>();
        QCOMPARE(account->clientId(), id);
        QCOMPARE(account->clientKey().toPEM(), key);
    }

    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QString>("password");
        QTest::addColumn<bool>("persistent");
        QTest::addColumn<int>("serviceFault");
        QTest::addColumn<Account::Error>("expected");

        QTest::newRow("persistent") << F::Ada << F::AdaPassword << true << 0 << Account::NoError;
        QTest::newRow("this session only") << F::Ada << F::AdaPassword << false << 0 << Account::NoError;
        QTest::newRow("wrong password") << F::Ada << "wrong" << true << 0 << Account::AuthenticationFailed;
        QTest::newRow("impersonation refused")
            << "bob@example.com>>ada@example.com"
            << "bob-demo-password" << true << 0 << Account::AuthenticationFailed;
        QTest::newRow("no user name") << ">>" << F::AdaPassword << true << 0 << Account::InvalidLoginData;
        QTest::newRow("service error") << F::Ada << F::AdaPassword << true << 503 << Account::ServiceFailure;
        QTest::newRow("request refused")
            << F::Ada << F::AdaPassword << true << 404 << Account::AuthenticationFailed;
        QTest::newRow("dropped connection")
            << F::Ada << F::AdaPassword << true << F::Dropped << Account::ServiceUnavailable;
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(QString, password);
        QFETCH(bool, persistent);
        QFETCH(int, serviceFault);
        QFETCH(Account::Error, expected);

        m_fixture.addFault(QStringLiteral("authenticate"), "POST", serviceFault);
        const bool connected = expected == Account::NoError;
        if (!connected) {
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(QStringLiteral(
                                                    "^Authentication failed with status [2-6]$")));
        }
        // Two views of the one account: what the first does, the second sees.
        auto first = std::make_unique<Account>();
        auto second = std::make_unique<Account>();
        QList<Account::Status> seen;
        connect(second.get(), &Account::statusChanged, this, [&] { seen.append(second->status()); });

        QCOMPARE(F::login(*first, persistent, userName, password), expected);
        QCOMPARE(seen, QList<Account::Status>(
                           {Account::Connecting, connected ? Account::Connected : Account::Disconnected}));
        QCOMPARE(second->isOnline(), connected);
        QCOMPARE(Account::profile().hasEntry(QStringLiteral("accessToken")), connected && persistent);
        if (!connected) {
            return;
        }
        QTRY_VERIFY(second->consumer() && second->identity() && !second->resourceList().isEmpty());
        const QByteArray bearer = "Bearer " + QByteArray(first->accessToken());
        for (const auto &request : m_fixture.service.journal()) {
            QCOMPARE(request.headers.value("authorization"),
                     request.path.endsWith("/authenticate") ? QByteArray() : bearer);
        }
        const QString consumer = second->consumer()->identifier();
        const int resources = second->resourceList().size();

        // Every view gone, the next one restores from the profile, where only a persistent login
        // has left its token.
        first.reset();
        second.reset();
        Account restored;
        QCOMPARE(restored.status(), persistent ? Account::Connected : Account::Disconnected);
        if (persistent) {
            QVERIFY(restored.session() && restored.identity() && restored.identity()->verifyChain());
            QCOMPARE(restored.consumer()->identifier(), consumer);
            QCOMPARE(restored.resourceList().size(), resources);
            QVERIFY(F::logout(restored));
        }
    }

    void secondLoginLeavesTheFirstAlone_data()
    {
        QTest::addColumn<bool>("whileConnecting");
        QTest::addColumn<Account::Error>("expected");
        QTest::newRow("while connecting") << true << Account::AlreadyBusy;
        QTest::newRow("while connected") << false << Account::AlreadyLoggedIn;
    }

    void secondLoginLeavesTheFirstAlone()
    {
        QFETCH(bool, whileConnecting);
        QFETCH(Account::Error, expected);

        m_fixture.addFault(QStringLiteral("authenticate"), "POST", 0, whileConnecting ? 300 : 0);
        Account account;
        QSignalSpy errors(&account, &Account::error);
        CredentialAuthenticator first;
        CredentialAuthenticator second;
        QSignalSpy secondFinished(&second, &CredentialAuthenticator::finished);
        first.setUserName(F::Ada);
        first.setPassword(F::AdaPassword);
        account.login(&first);
        if (!whileConnecting) {
            QTRY_COMPARE(account.status(), Account::Connected);
        }
        account.login(&second);
        QCOMPARE(errors.size(), 1);
        QCOMPARE(errors.at(0).at(0).value<Account::Error>(), expected);
        QTRY_COMPARE(account.status(), Account::Connected);
        QCOMPARE(m_fixture.countRequests("POST", "/authenticate"), 1);
        QCOMPARE(secondFinished.size(), 0);
        QVERIFY(F::logout(account));
    }

    void logoutEndsSignedOut_data()
    {
        QTest::addColumn<bool>("loggedIn");
        QTest::addColumn<int>("serviceFault");
        QTest::addColumn<Account::Error>("expected");
        QTest::addColumn<QString>("log");
        QTest::newRow("service agrees") << true << 0 << Account::NoError << QString();
        QTest::newRow("service down")
            << true << F::Dropped << Account::ServiceUnavailable << "Logout failed - service unavailable";
        QTest::newRow("service error")
            << true << 500 << Account::ServiceFailure << "Logout failed with server error code 500";
        QTest::newRow("not logged in") << false << 0 << Account::NotLoggedIn << QString();
    }

    void logoutEndsSignedOut()
    {
        QFETCH(bool, loggedIn);
        QFETCH(int, serviceFault);
        QFETCH(Account::Error, expected);
        QFETCH(QString, log);

        Account account;
        QVERIFY(!loggedIn || F::connect(account));
        m_fixture.addFault(QStringLiteral("logins/current"), "DELETE", serviceFault);
        if (!log.isEmpty()) {
            QTest::ignoreMessage(QtCriticalMsg, qPrintable(log));
        }
        m_fixture.service.clearJournal();
        QSignalSpy errors(&account, &Account::error);
        account.logout();
        QTRY_COMPARE(account.status(), Account::Disconnected);
        QCOMPARE(errors.size(), expected == Account::NoError ? 0 : 1);
        QVERIFY(errors.isEmpty() || errors.at(0).at(0).value<Account::Error>() == expected);
        QCOMPARE(m_fixture.countRequests("DELETE", "/logins/current") > 0, loggedIn);
        QCOMPARE(F::profileEntries(), F::ClientIdentity);
        QVERIFY(!account.isOnline() && !account.consumer() && !account.identity() && !account.session());
        QVERIFY(account.resourceList().isEmpty() && !account.accessToken().isValid());
    }
};

QTEST_GUILESS_MAIN(TestAccountLifecycle)
#include "tst_accountlifecycle.moc"

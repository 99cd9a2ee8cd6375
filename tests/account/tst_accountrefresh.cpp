// The refresh of a connected account against the development service in-process, on a schedule
// two thousand times as fast: the data it brings, what it keeps, how the online check reacts to
// failures and to a login ended at the service.

#include "accountfixture.h"

#include <Vantro/deleterequest.h>
#include <VantroAccount/profile.h>
#include <VantroAccount/resource.h>

#include <QFile>
#include <QJsonDocument>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using vn::account::Account;
using vn::devservice::Scenario;
using F = AccountFixture;

class TestAccountRefresh : public QObject
{
    Q_OBJECT

    AccountFixture m_fixture;
    std::unique_ptr<Account> m_account;

private slots:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(0.0005));
        m_account = std::make_unique<Account>();
    }

    void cleanup()
    {
        m_fixture.service.clearFaults();
        QVERIFY(m_account->status() != Account::Connected || F::logout(*m_account));
        m_fixture.service.setScenario(Scenario::demo());
    }

    void refreshKeepsWhatIsUnchanged_data()
    {
        QTest::addColumn<bool>("persistent");
        QTest::newRow("persistent") << true;
        QTest::newRow("this session only") << false;
    }

    void refreshKeepsWhatIsUnchanged()
    {
        QFETCH(bool, persistent);
        QVERIFY(F::connect(*m_account, persistent));
        QVERIFY(m_account->identity()->verifyChain());
        QCOMPARE(m_account->identity()->uuid(),
                 m_fixture.service.identityChain().last().toObject().value(QLatin1String("id")).toString());
        QCOMPARE(m_account->resourceList().size(), 9);
        QVERIFY(m_account->consumer()->name() == "Ada Lovelace" &&
                !m_account->session()->identifier().isEmpty());
        const QSet<QString> refreshed{QStringLiteral("accessToken"), QStringLiteral("sessionInfo"),
                                      QStringLiteral("consumerInfo"), QStringLiteral("identity"),
                                      QStringLiteral("resources")};
        QCOMPARE(F::profileEntries(), persistent ? F::ClientIdentity + refreshed : F::ClientIdentity);

        // The same answers again: identity and resources stay the very objects, while a consumer
        // record with the same identifier replaces its object.
        const auto identity = m_account->identity();
        const auto resources = m_account->resourceList();
        QPointer<vn::account::Consumer> consumer = m_account->consumer();
        QSignalSpy identityChanged(m_account.get(), &Account::identityChanged);
        QSignalSpy resourcesChanged(m_account.get(), &Account::resourcesChanged);
        m_fixture.service.clearJournal();
        QTRY_VERIFY_WITH_TIMEOUT(m_fixture.countRequests("GET", "/identity") &&
                                     m_fixture.countRequests("GET", "/entitled"),
                                 10000);
        QTRY_VERIFY(consumer.isNull() && m_account->consumer());
        QCOMPARE(m_account->identity(), identity);
        QCOMPARE(m_account->resourceList(), resources);
        QCOMPARE(identityChanged.size() + resourcesChanged.size(), 0);
    }

    void onlineCheckFailures_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("log");
        QTest::newRow("server error") << 503 << "^Online check failed with server error status 503$";
        QTest::newRow("client error") << 404 << "^Online check failed with client error status 404$";
        // Back online through an answer that does not parse: online again, but without a signal.
        QTest::newRow("answer not JSON") << 0 << "^Failed to parse session data ";
    }

    void onlineCheckFailures()
    {
        QFETCH(int, status);
        QFETCH(QString, log);

        QVERIFY(F::connect(*m_account));
        QSignalSpy onlineChanged(m_account.get(), &Account::onlineChanged);
        QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(log));
        vn::devservice::Fault fault;
        fault.path = QStringLiteral("api/v1/logins/current");
        fault.status = status ? status : 503;
        fault.count = status ? 1000 : 3;
        m_fixture.service.addFault(fault);
        fault.status = 0;
        fault.malformedBody = true;
        m_fixture.service.addFault(fault);
        QTRY_VERIFY(!onlineChanged.isEmpty()); // offline, however briefly
        QCOMPARE(m_account->status(), Account::Connected);
        if (status) {
            // Offline for longer than consumer and resources take to come due again (once any
            // request already under way has arrived).
            QTest::qWait(250);
            m_fixture.service.clearJournal();
            QTest::qWait(600);
            QVERIFY(!m_account->isOnline());
            QCOMPARE(m_fixture.countRequests("GET", "/consumer") +
                         m_fixture.countRequests("GET", "/identity") +
                         m_fixture.countRequests("GET", "/entitled"),
                     0);
            m_fixture.service.clearFaults();
        }
        QTRY_VERIFY(m_account->isOnline());
        QCOMPARE(onlineChanged.size(), status ? 2 : 1);
    }

    void loginEndedAtTheServiceSignsOut()
    {
        QVERIFY(F::connect(*m_account));
        vn::DeleteRequest *ending =
            m_account->deleteRequest(QUrl(QStringLiteral("logins/") + m_account->session()->identifier()));
        ending->setParent(this); // kept for its answer
        QSignalSpy ended(ending, &vn::Request::finished);
        QVERIFY(ended.wait() && ending->responseCode() == 200);

        QTest::ignoreMessage(QtInfoMsg, "Current session expired or revoked - disconnecting");
        QTRY_COMPARE(m_account->status(), Account::Disconnected);
        QCOMPARE(F::profileEntries(), F::ClientIdentity);
        QVERIFY(!m_account->isOnline() && !m_account->consumer() && !m_account->identity() &&
                !m_account->session());
        QVERIFY(m_account->resourceList().isEmpty());
        QTest::qWait(100); // for requests that were already under way
        m_fixture.service.clearJournal();
        QTest::qWait(100); // a hundred ticks, had the timer kept running
        QCOMPARE(m_fixture.service.journal().size(), 0);
    }

    void tamperedResourceIsNotKept()
    {
        QFile demo(QStringLiteral(":/vantro-devservice/demo/scenario.json")); // the service's own demo
        QVERIFY(demo.open(QIODevice::ReadOnly));
        QJsonObject document = QJsonDocument::fromJson(demo.readAll()).object();
        QJsonArray resources = document.value(QLatin1String("resources")).toArray();
        const QString forged = QStringLiteral("0e3c7a52-4f0e-4c55-9a8e-6f2d1b7c9e01");
        resources.append(QJsonObject{{QStringLiteral("id"), forged},
                                     {QStringLiteral("type"), QStringLiteral("vantro.resource.Database")},
                                     {QStringLiteral("tampered"), true}});
        document.insert(QStringLiteral("resources"), resources);
        QVERIFY(m_fixture.service.setScenario(
            Scenario::fromJson(document, QStringLiteral(":/vantro-devservice/demo"))));

        QTest::ignoreMessage(QtCriticalMsg, qPrintable("Signature validation failed for resource " + forged));
        QVERIFY(F::connect(*m_account));
        QCOMPARE(m_account->resourceList().size(), 9); // of the ten offered
    }
};

QTEST_GUILESS_MAIN(TestAccountRefresh)
#include "tst_accountrefresh.moc"

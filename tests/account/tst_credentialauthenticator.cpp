// Credential login against the development account service in-process, over real HTTP.

#include "accountfixture.h"

using vn::account::AbstractAuthenticator;
using Status = vn::account::AbstractAuthenticator::Status;
using vn::test::jsonObject;

class TestCredentialAuthenticator : public QObject
{
    Q_OBJECT
    AccountFixture m_fixture;
    vn::account::CredentialAuthenticator m_authenticator;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(1.0));
        m_authenticator.setNetwork(vn::network::NetworkAccessManager::sharedInstance());
        m_authenticator.setHostInfo(QStringLiteral("WS-17"));
        m_authenticator.setPersistent(true);
    }

    void cleanup() { m_fixture.service.clearFaults(); }

    // "user", "target": "username" and "impersonate" sent; "success": a token, the password forgotten.
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<int>("fault");
        QTest::addColumn<Status>("status");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("target");

        const QString ada = demo::Ada;
        const QString bob = demo::Bob;
        QTest::newRow("both trimmed")
            << "  ada@example.com  >>  bob@example.com " << 0 << Status::Success << true << ada << bob;
        QTest::newRow("empty user dropped")
            << ">>ada@example.com" << 0 << Status::Success << true << ada << "";
        QTest::newRow("empty target dropped")
            << "ada@example.com>>" << 0 << Status::Success << true << ada << "";
        QTest::newRow("third ignored")
            << "ada@example.com>>bob@example.com>>carol" << 0 << Status::Success << true << ada << bob;
        QTest::newRow("unknown user")
            << "eve@example.com" << 0 << Status::AuthenticationFailed << false << "eve@example.com"
            << "";
        QTest::newRow("impersonation refused")
            << "ada@example.com>>eve" << 0 << Status::AuthenticationFailed << false << ada << "eve";
        QTest::newRow("204") << ada << 204 << Status::ServiceUnavailable << false << ada << "";
        QTest::newRow("400") << ada << 400 << Status::RequestFailed << false << ada << "";
        QTest::newRow("500") << ada << 500 << Status::ServiceFailure << false << ada << "";
        QTest::newRow("no response") << ada << int(AccountFixture::Dropped) << Status::ServiceUnavailable
                                     << false << ada << "";
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(int, fault);
        QFETCH(Status, status);
        QFETCH(bool, success);
        QFETCH(QString, user);
        QFETCH(QString, target);

        m_fixture.service.clearJournal();
        // Twice: Qt sends once more when a connection closes before any answer, as it may after a 204.
        m_fixture.addFault(QStringLiteral("authenticate"), "POST", fault, 2);
        m_authenticator.setUserName(userName);
        m_authenticator.setPassword(demo::AdaPassword);
        QSignalSpy finished(&m_authenticator, &AbstractAuthenticator::finished);
        m_authenticator.start();
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).value<Status>(), status);
        QCOMPARE(finished.at(0).at(1).value<vn::account::AccessToken>().isValid(), success);
        QCOMPARE(m_authenticator.password().isEmpty(), success);
        QJsonObject body = jsonObject("{'authType': 'credentials', 'password': 'ada-demo-password', "
                                      "'persistent': true, 'hostInfo': 'WS-17'}");
        body.insert(QStringLiteral("username"), user);
        if (!target.isEmpty()) {
            body.insert(QStringLiteral("impersonate"), target);
        }
        QCOMPARE(QJsonDocument::fromJson(m_fixture.service.journal().at(0).body).object(), body);
    }

    // A start while one runs is refused and leaves it undisturbed; one without a user name sends nothing.
    void refusedStart_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QList<Status>>("statuses");
        QTest::addColumn<int>("requests");
        QTest::newRow("while busy") << demo::Ada << QList<Status>{Status::Busy, Status::Success} << 1;
        QTest::newRow("separators only")
            << ">>>>" << QList<Status>{Status::InvalidLoginData, Status::InvalidLoginData} << 0;
    }

    void refusedStart()
    {
        QFETCH(QString, userName);
        QFETCH(QList<Status>, statuses);
        QFETCH(int, requests);

        m_fixture.service.clearJournal();
        m_authenticator.setUserName(userName);
        m_authenticator.setPassword(demo::AdaPassword);
        QList<Status> finished;
        connect(&m_authenticator, &AbstractAuthenticator::finished, this,
                [&finished](Status status) { finished.append(status); });
        m_authenticator.start();
        m_authenticator.start();
        QTRY_COMPARE(finished, statuses);
        QCOMPARE(m_fixture.service.journal().size(), requests);
        disconnect(&m_authenticator, nullptr, this, nullptr);
    }
};

QTEST_GUILESS_MAIN(TestCredentialAuthenticator)
#include "tst_credentialauthenticator.moc"

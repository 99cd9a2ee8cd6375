// Credential login against the development account service in-process, over real HTTP.

#include "accountfixture.h"
#include "testjson.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QtTest>

using vn::account::AbstractAuthenticator;
using vn::test::jsonObject;
namespace demo = vn::test::demo;

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

    // "sent": the members of the body besides those every login sends; "success" also means a
    // token and the password forgotten (kept for another try otherwise).
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<int>("fault");
        QTest::addColumn<AbstractAuthenticator::Status>("status");
        QTest::addColumn<bool>("success");
        QTest::addColumn<QJsonObject>("sent");

        QTest::newRow("both trimmed")
            << "  ada@example.com  >>  bob@example.com " << 0 << AbstractAuthenticator::Success << true
            << jsonObject("{'username': 'ada@example.com', 'impersonate': 'bob@example.com'}");
        QTest::newRow("empty user dropped") << ">>ada@example.com" << 0 << AbstractAuthenticator::Success
                                            << true << jsonObject("{'username': 'ada@example.com'}");
        QTest::newRow("empty target dropped") << "ada@example.com>>" << 0 << AbstractAuthenticator::Success
                                              << true << jsonObject("{'username': 'ada@example.com'}");
        QTest::newRow("third ignored")
            << "ada@example.com>>bob@example.com>>carol" << 0 << AbstractAuthenticator::Success << true
            << jsonObject("{'username': 'ada@example.com', 'impersonate': 'bob@example.com'}");
        QTest::newRow("unknown user") << "eve@example.com" << 0 << AbstractAuthenticator::AuthenticationFailed
                                      << false << jsonObject("{'username': 'eve@example.com'}");
        QTest::newRow("impersonation refused")
            << "ada@example.com>>eve" << 0 << AbstractAuthenticator::AuthenticationFailed << false
            << jsonObject("{'username': 'ada@example.com', 'impersonate': 'eve'}");
        QTest::newRow("204") << "ada@example.com" << 204 << AbstractAuthenticator::ServiceUnavailable << false
                             << jsonObject("{'username': 'ada@example.com'}");
        QTest::newRow("400") << "ada@example.com" << 400 << AbstractAuthenticator::RequestFailed << false
                             << jsonObject("{'username': 'ada@example.com'}");
        QTest::newRow("500") << "ada@example.com" << 500 << AbstractAuthenticator::ServiceFailure << false
                             << jsonObject("{'username': 'ada@example.com'}");
        QTest::newRow("no response") << "ada@example.com" << int(AccountFixture::Dropped)
                                     << AbstractAuthenticator::ServiceUnavailable << false
                                     << jsonObject("{'username': 'ada@example.com'}");
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(int, fault);
        QFETCH(AbstractAuthenticator::Status, status);
        QFETCH(bool, success);
        QFETCH(QJsonObject, sent);

        m_fixture.service.clearJournal();
        // Twice: Qt sends once more when a connection closes before any answer, as it may after a 204.
        m_fixture.addFault(QStringLiteral("authenticate"), "POST", fault, 2);
        m_authenticator.setUserName(userName);
        m_authenticator.setPassword(demo::AdaPassword);
        QSignalSpy finished(&m_authenticator, &AbstractAuthenticator::finished);
        m_authenticator.start();
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).value<AbstractAuthenticator::Status>(), status);
        QCOMPARE(finished.at(0).at(1).value<vn::account::AccessToken>().isValid(), success);
        QCOMPARE(m_authenticator.password().isEmpty(), success);
        QJsonObject body = jsonObject("{'authType': 'credentials', 'password': 'ada-demo-password', "
                                      "'persistent': true, 'hostInfo': 'WS-17'}");
        for (auto it = sent.begin(); it != sent.end(); ++it) {
            body.insert(it.key(), it.value());
        }
        QCOMPARE(QJsonDocument::fromJson(m_fixture.service.journal().at(0).body).object(), body);
    }

    // A start while one runs is refused and leaves it undisturbed; one without a user name sends nothing.
    void refusedStart_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<QList<AbstractAuthenticator::Status>>("statuses");
        QTest::addColumn<int>("requests");
        QTest::newRow("while busy") << demo::Ada
                                    << QList<AbstractAuthenticator::Status>{AbstractAuthenticator::Busy,
                                                                            AbstractAuthenticator::Success}
                                    << 1;
        QTest::newRow("separators only")
            << ">>>>"
            << QList<AbstractAuthenticator::Status>{AbstractAuthenticator::InvalidLoginData,
                                                    AbstractAuthenticator::InvalidLoginData}
            << 0;
    }

    void refusedStart()
    {
        QFETCH(QString, userName);
        QFETCH(QList<AbstractAuthenticator::Status>, statuses);
        QFETCH(int, requests);

        m_fixture.service.clearJournal();
        m_authenticator.setUserName(userName);
        m_authenticator.setPassword(demo::AdaPassword);
        QList<AbstractAuthenticator::Status> finished;
        connect(&m_authenticator, &AbstractAuthenticator::finished, this,
                [&finished](AbstractAuthenticator::Status status) { finished.append(status); });
        m_authenticator.start();
        m_authenticator.start();
        QTRY_COMPARE(finished, statuses);
        QCOMPARE(m_fixture.service.journal().size(), requests);
        disconnect(&m_authenticator, nullptr, this, nullptr);
    }
};

QTEST_GUILESS_MAIN(TestCredentialAuthenticator)
#include "tst_credentialauthenticator.moc"

// Credential login against the development account service in-process, over real HTTP.

#include "accountfixture.h"

#include <VantroAccount/credentialauthenticator.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QtTest>

using S = vn::account::AbstractAuthenticator;
using F = AccountFixture;

static const QString HostInfo = QStringLiteral("WS-17 [3f2a9c0d1e8b4a7f9c6d5e4b3a2f1e0d]");

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
        m_authenticator.setHostInfo(HostInfo);
        m_authenticator.setPersistent(true);
    }

    // "sent": "username>>impersonate" as the service must receive them, without ">>" when the
    // member must be absent, empty when nothing may be sent.
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<int>("fault");
        QTest::addColumn<S::Status>("status");
        QTest::addColumn<QString>("sent");
        const QString both = F::Ada + QStringLiteral(">>bob@example.com");
        QTest::newRow("200, both trimmed")
            << "  ada@example.com  >>  bob@example.com " << 0 << S::Success << both;
        QTest::newRow("empty user dropped") << ">>ada@example.com" << 0 << S::Success << F::Ada;
        QTest::newRow("empty target dropped") << "ada@example.com>>" << 0 << S::Success << F::Ada;
        QTest::newRow("third ignored") << QString(both + ">>carol") << 0 << S::Success << both;
        QTest::newRow("401") << "eve@example.com" << 0 << S::AuthenticationFailed << "eve@example.com";
        QTest::newRow("403") << "ada@example.com>>eve" << 0 << S::AuthenticationFailed
                             << "ada@example.com>>eve";
        QTest::newRow("204") << F::Ada << 204 << S::ServiceUnavailable << F::Ada;
        QTest::newRow("400") << F::Ada << 400 << S::RequestFailed << F::Ada;
        QTest::newRow("500") << F::Ada << 500 << S::ServiceFailure << F::Ada;
        QTest::newRow("no response") << F::Ada << F::Dropped << S::ServiceUnavailable << F::Ada;
        QTest::newRow("separators only") << ">>>>" << 0 << S::InvalidLoginData << "";
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(int, fault);
        QFETCH(S::Status, status);
        QFETCH(QString, sent);

        m_fixture.service.clearFaults();
        m_fixture.service.clearJournal();
        // Twice: Qt sends once more when a connection closes before any answer, as it may after a 204.
        m_fixture.addFault(QStringLiteral("authenticate"), "POST", fault, 2);
        m_authenticator.setUserName(userName);
        m_authenticator.setPassword(F::AdaPassword);
        QSignalSpy finished(&m_authenticator, &S::finished);
        m_authenticator.start();
        m_authenticator.start(); // refused while the first runs, which goes on undisturbed
        QTRY_COMPARE(finished.size(), 2);
        QCOMPARE(int(finished.at(0).at(0).value<S::Status>()), int(sent.isEmpty() ? status : S::Busy));
        QCOMPARE(int(finished.at(1).at(0).value<S::Status>()), int(status));
        QCOMPARE(finished.at(1).at(1).value<vn::account::AccessToken>().isValid(), status == S::Success);
        // Kept for another try after a failure.
        QCOMPARE(m_authenticator.password().isEmpty(), status == S::Success);

        QCOMPARE(m_fixture.service.journal().isEmpty(), sent.isEmpty());
        if (!sent.isEmpty()) {
            const QStringList pieces = sent.split(QStringLiteral(">>"));
            QJsonObject body{{"authType", "credentials"},
                             {"username", pieces.at(0)},
                             {"password", F::AdaPassword},
                             {"persistent", true},
                             {"hostInfo", HostInfo}};
            if (pieces.size() > 1) {
                body.insert(QStringLiteral("impersonate"), pieces.at(1));
            }
            QCOMPARE(QJsonDocument::fromJson(m_fixture.service.journal().at(0).body).object(), body);
        }
    }
};

QTEST_GUILESS_MAIN(TestCredentialAuthenticator)
#include "tst_credentialauthenticator.moc"

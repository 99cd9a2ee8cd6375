// Credential login against the development account service in-process, over real HTTP.

#include <devservice.h>

#include <VantroAccount/credentialauthenticator.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QJsonDocument>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <QtTest>

using S = vn::account::AbstractAuthenticator;

static const QString ada = QStringLiteral("ada@example.com");
static const QString hostInfo = QStringLiteral("WS-17 [3f2a9c0d1e8b4a7f9c6d5e4b3a2f1e0d]");

class TestCredentialAuthenticator : public QObject
{
    Q_OBJECT
    vn::devservice::DevService m_service;
    QTemporaryDir m_folder;
    std::unique_ptr<vn::account::CredentialAuthenticator> m_authenticator;

private slots:
    void initTestCase()
    {
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
        QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
        const QString configuration = m_folder.filePath(QStringLiteral("account.json"));
        QVERIFY(m_service.writeConfiguration(configuration));
        qputenv("VANTRO_ACCOUNT_CONFIG", configuration.toLocal8Bit());
    }

    void init()
    {
        m_service.clearFaults();
        m_service.clearJournal();
        m_authenticator = std::make_unique<vn::account::CredentialAuthenticator>();
        m_authenticator->setNetwork(vn::network::NetworkAccessManager::sharedInstance());
        m_authenticator->setHostInfo(hostInfo);
        m_authenticator->setPersistent(true);
        m_authenticator->setUserName(ada);
        m_authenticator->setPassword(QStringLiteral("ada-demo-password"));
    }

    // "sent": "username>>impersonate" as the service must receive them, without ">>" when the
    // member must be absent, empty when nothing may be sent. Fault 0: the service judges; -1: the
    // connection is dropped without an answer.
    void login_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<int>("fault");
        QTest::addColumn<S::Status>("status");
        QTest::addColumn<QString>("sent");
        const QString both = QStringLiteral("ada@example.com>>bob@example.com");
        QTest::newRow("200, both trimmed")
            << "  ada@example.com  >>  bob@example.com " << 0 << S::Success << both;
        QTest::newRow("empty user dropped") << ">>ada@example.com" << 0 << S::Success << ada;
        QTest::newRow("empty target dropped") << "ada@example.com>>" << 0 << S::Success << ada;
        QTest::newRow("third ignored") << QString(both + ">>carol") << 0 << S::Success << both;
        QTest::newRow("401") << "eve@example.com" << 0 << S::AuthenticationFailed << "eve@example.com";
        QTest::newRow("403") << "ada@example.com>>eve" << 0 << S::AuthenticationFailed
                             << "ada@example.com>>eve";
        QTest::newRow("204") << ada << 204 << S::ServiceUnavailable << ada;
        QTest::newRow("400") << ada << 400 << S::RequestFailed << ada;
        QTest::newRow("500") << ada << 500 << S::ServiceFailure << ada;
        QTest::newRow("no response") << ada << -1 << S::ServiceUnavailable << ada;
        QTest::newRow("separators only") << ">>>>" << 0 << S::InvalidLoginData << "";
    }

    void login()
    {
        QFETCH(QString, userName);
        QFETCH(int, fault);
        QFETCH(S::Status, status);
        QFETCH(QString, sent);
        // path, method, count, status (0 serves), delay, malformed body, dropped connection. Qt sends a
        // request once more when its connection closes before any answer, hence two.
        m_service.addFault(
            {QStringLiteral("api/v1/authenticate"), {}, 2, qMax(fault, 0), 0, false, fault < 0});
        m_authenticator->setUserName(userName);
        const QString password = m_authenticator->password();
        QSignalSpy finished(m_authenticator.get(), &S::finished);
        m_authenticator->start();
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(int(finished.at(0).at(0).value<S::Status>()), int(status));
        QCOMPARE(finished.at(0).at(1).value<vn::account::AccessToken>().isValid(), status == S::Success);
        QCOMPARE(m_authenticator->password().isEmpty(), status == S::Success);

        QCOMPARE(m_service.journal().isEmpty(), sent.isEmpty());
        if (!sent.isEmpty()) {
            const QStringList pieces = sent.split(QStringLiteral(">>"));
            QJsonObject body{{"authType", "credentials"}, {"username", pieces.at(0)}, {"password", password}};
            body.insert(QStringLiteral("persistent"), true);
            body.insert(QStringLiteral("hostInfo"), hostInfo);
            if (pieces.size() > 1) {
                body.insert(QStringLiteral("impersonate"), pieces.at(1));
            }
            QCOMPARE(QJsonDocument::fromJson(m_service.journal().at(0).body).object(), body);
        }
    }

    void busyWhileRunning()
    {
        m_service.addFault({QStringLiteral("api/v1/authenticate"), {}, 1, 0, 300});
        QSignalSpy finished(m_authenticator.get(), &S::finished);
        m_authenticator->start();
        m_authenticator->start();
        QCOMPARE(finished.size(), 1);
        QCOMPARE(int(finished.at(0).at(0).value<S::Status>()), int(S::Busy));
        QTRY_COMPARE(finished.size(), 2);
        QCOMPARE(int(finished.at(1).at(0).value<S::Status>()), int(S::Success));
        QCOMPARE(m_service.journal().size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestCredentialAuthenticator)
#include "tst_credentialauthenticator.moc"

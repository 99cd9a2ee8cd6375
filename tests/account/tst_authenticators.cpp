// The two authenticators against the development account service in-process, over real HTTP:
// credentials ("user>>target") and the device's challenge-response.

#include "accountfixture.h"

using namespace vn::account;
using vn::crypto::PrivateKey;
using Status = vn::account::AbstractAuthenticator::Status;
using vn::test::jsonObject;

static const QString HostInfo = QStringLiteral("kiosk-3");
// A challenge of 32 known bytes, which the "secret" phase-1 answer encrypts to the demo key.
static const QByteArray Secret(32, '\x5a');

class TestAuthenticators : public QObject
{
    Q_OBJECT
    AccountFixture m_fixture;
    vn::account::CredentialAuthenticator m_authenticator;
    PrivateKey m_demoKey;

    // Sends with the shared network, the host info and a persistent login.
    static void setUp(AbstractAuthenticator &authenticator)
    {
        authenticator.setNetwork(vn::network::NetworkAccessManager::sharedInstance());
        authenticator.setHostInfo(HostInfo);
        authenticator.setPersistent(true);
    }

    // Starts a login with @p key ("demo", "other" or "none"), phase 1 answered with @p fault, @p answer.
    void start(ChallengeResponseAuthenticator &authenticator, const QString &key, int fault,
               const QByteArray &answer)
    {
        setUp(authenticator);
        if (key != QLatin1String("none")) {
            authenticator.setPrivateKey(key == QLatin1String("demo") ? m_demoKey : PrivateKey(1, 2048));
        }
        if (fault || !answer.isEmpty()) {
            const QByteArray secret = m_demoKey.publicKey().encrypt(Secret).toBase64();
            m_fixture.addFault("authenticate", "POST", fault, 1,
                               answer == "secret" ? "{\"challenge\": \"" + secret + "\"}" : answer);
        }
        authenticator.start();
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_fixture.start(1.0));
        setUp(m_authenticator);
        m_demoKey = PrivateKey(AccountFixture::demoDeviceKey());
        QVERIFY(m_demoKey.isValid());
    }

    void cleanup()
    {
        m_fixture.service.clearFaults();
        m_fixture.service.setChallengeLifetime(vn::devservice::DevService::DefaultChallengeLifetime);
    }

    // "user", "target": "username" and "impersonate" sent; "success": a token, the password forgotten.
    void credentials_data()
    {
        QTest::addColumn<QString>("userName");
        QTest::addColumn<int>("fault");
        QTest::addColumn<Status>("status");
        QTest::addColumn<QString>("user");
        QTest::addColumn<QString>("target");

        const auto row = [](const char *name, const QString &userName, Status status, const QString &user,
                            const QString &target = QString(), int fault = 0) {
            QTest::newRow(name) << userName << fault << status << user << target;
        };
        row("both trimmed", "  ada@example.com  >>  bob@example.com ", Status::Success, demo::Ada, demo::Bob);
        row("empty user dropped", ">>ada@example.com", Status::Success, demo::Ada);
        row("empty target dropped", "ada@example.com>>", Status::Success, demo::Ada);
        row("third ignored", "ada@example.com>>bob@example.com>>carol", Status::Success, demo::Ada,
            demo::Bob);
        row("impersonation refused", "ada@example.com>>eve", Status::AuthenticationFailed, demo::Ada, "eve");
        row("204", demo::Ada, Status::ServiceUnavailable, demo::Ada, "", 204);
        row("400", demo::Ada, Status::RequestFailed, demo::Ada, "", 400);
    }

    void credentials()
    {
        QFETCH(QString, userName);
        QFETCH(int, fault);
        QFETCH(Status, status);
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
        const bool success = status == Status::Success;
        QCOMPARE(finished.at(0).at(1).value<vn::account::AccessToken>().isValid(), success);
        QCOMPARE(m_authenticator.password().isEmpty(), success);
        QJsonObject body = jsonObject("{'authType': 'credentials', 'password': 'ada-demo-password', "
                                      "'persistent': true, 'hostInfo': 'kiosk-3'}");
        body.insert(QStringLiteral("username"), user);
        if (!target.isEmpty()) {
            body.insert(QStringLiteral("impersonate"), target);
        }
        QCOMPARE(QJsonDocument::fromJson(m_fixture.service.journal().at(0).body).object(), body);
    }

    // A start while one runs is refused and leaves it undisturbed (one without a user name: tst_account).
    void startWhileBusy()
    {
        m_fixture.service.clearJournal();
        AccountFixture::asAda(m_authenticator, true);
        QSignalSpy finished(&m_authenticator, &AbstractAuthenticator::finished);
        m_authenticator.start();
        m_authenticator.start();
        QTRY_COMPARE(finished.size(), 2);
        QCOMPARE(finished.at(0).at(0).value<Status>(), Status::Busy);
        QCOMPARE(finished.at(1).at(0).value<Status>(), Status::Success);
        QCOMPARE(m_fixture.service.journal().size(), 1);
    }

    // "answer": phase 1's answer ("secret": the known challenge, without an "id"); "logged": a critical line.
    void challenge_data()
    {
        QTest::addColumn<QString>("key");
        QTest::addColumn<int>("fault");
        QTest::addColumn<QByteArray>("answer");
        QTest::addColumn<int>("challengeLifetime");
        QTest::addColumn<QString>("logged");
        QTest::addColumn<QList<Status>>("statuses"); // of a start, then of a second one
        QTest::addColumn<QList<int>>("sent");        // requests of each

        const auto row = [](const char *name, const QList<Status> &statuses, const QList<int> &sent,
                            const char *key = "demo", const QByteArray &answer = {}, int fault = 0,
                            int lifetime = 60000, const char *logged = "") {
            QTest::newRow(name) << key << fault << answer << lifetime << logged << statuses << sent;
        };
        const Status refused = Status::AuthenticationFailed;
        row("demo key", {Status::Success, Status::Success}, {2, 2});
        row("unknown key", {refused, refused}, {1, 1}, "other");
        row("no key", {Status::InvalidLoginData, Status::InvalidLoginData}, {0, 0}, "none");
        row("challenge expired before the answer", {refused, refused}, {2, 2}, "demo", {}, 0, 0);
        row("phase 1: 302", {Status::ServiceUnavailable, Status::Success}, {1, 2}, "demo", {}, 302);
        // Spent by a useless challenge: once more refuses without sending.
        row("phase 1: no challenge", {Status::ServiceFailure, Status::Busy}, {1, 0}, "demo",
            R"({"id": "c-1"})");
        row("phase 1: a challenge for another key", {Status::RequestFailed, Status::Busy}, {1, 0}, "demo",
            R"({"id": "c-1", "challenge": "AAECAwQF"})", 0, 60000, "^Cannot decrypt: .*oaep decoding error$");
        // Decrypted and sent back with an empty id, which the service knows nothing of.
        row("phase 1: a challenge without id", {refused, Status::Success}, {2, 2}, "demo", "secret");
    }

    void challenge()
    {
        QFETCH(QString, key);
        QFETCH(int, fault);
        QFETCH(QByteArray, answer);
        QFETCH(int, challengeLifetime);
        QFETCH(QString, logged);
        QFETCH(QList<Status>, statuses);
        QFETCH(QList<int>, sent);

        if (!logged.isEmpty()) {
            QTest::ignoreMessage(QtCriticalMsg, QRegularExpression(logged));
        }
        m_fixture.service.setChallengeLifetime(challengeLifetime);
        ChallengeResponseAuthenticator authenticator;
        QSignalSpy finished(&authenticator, &AbstractAuthenticator::finished);
        m_fixture.service.clearJournal();
        start(authenticator, key, fault, answer);
        QTRY_COMPARE(finished.size(), 1);
        QCOMPARE(finished.at(0).at(0).value<Status>(), statuses.at(0));
        QCOMPARE(finished.at(0).at(1).value<AccessToken>().isValid(), statuses.at(0) == Status::Success);

        const auto journal = m_fixture.service.journal();
        QCOMPARE(journal.size(), sent.at(0));
        if (sent.at(0) >= 1) { // the question names the key and nothing else
            const QString fingerprint =
                authenticator.privateKey().fingerPrint(QCryptographicHash::Sha256).toBase64();
            QJsonObject question = jsonObject("{'authType': 'challenge-response', 'phase': 'challenge'}");
            question.insert(QStringLiteral("fingerprint"), fingerprint);
            QCOMPARE(QJsonDocument::fromJson(journal.at(0).body).object(), question);
        }
        if (sent.at(0) == 2) {
            QJsonObject response = QJsonDocument::fromJson(journal.at(1).body).object();
            const QJsonValue challenge = response.take(QStringLiteral("challenge"));
            const QJsonValue id = response.take(QStringLiteral("challengeId"));
            QVERIFY(challenge.isString() && id.isString());
            QCOMPARE(response, jsonObject("{'authType': 'challenge-response', 'phase': 'response', "
                                          "'hostInfo': 'kiosk-3', 'persistent': true}"));
            if (answer == "secret") {
                QCOMPARE(id, "");
                QCOMPARE(challenge, QString::fromLatin1(Secret.toBase64()));
            }
        }

        // Once more, then another login, by whose end whatever the first sent has arrived.
        m_fixture.service.clearFaults();
        m_fixture.service.clearJournal();
        authenticator.start();
        QTRY_COMPARE(finished.size(), 2);
        QCOMPARE(finished.at(1).at(0).value<Status>(), statuses.at(1));
        m_fixture.service.setChallengeLifetime(vn::devservice::DevService::DefaultChallengeLifetime);
        ChallengeResponseAuthenticator other;
        QSignalSpy otherFinished(&other, &AbstractAuthenticator::finished);
        start(other, QStringLiteral("demo"), 0, QByteArray());
        QTRY_COMPARE(otherFinished.size(), 1);
        QCOMPARE(m_fixture.service.journal().size(), sent.at(1) + 2);
    }

    // The key is set once per key, whichever way it arrives; a file that opens no key changes nothing.
    void key()
    {
        const PrivateKey other(1, 2048);
        const QString file = m_fixture.folder.filePath(QStringLiteral("other.pem"));
        QVERIFY(vn::test::writeFile(file, other.toEncryptedPEM(QStringLiteral("sesame"))));
        ChallengeResponseAuthenticator authenticator;
        QSignalSpy keyChanged(&authenticator, &ChallengeResponseAuthenticator::privateKeyChanged);
        authenticator.setPrivateKey(m_demoKey);
        authenticator.setPrivateKey(PrivateKey(m_demoKey.toPEM())); // another object, the same key
        QVERIFY(authenticator.loadPrivateKey(QUrl::fromLocalFile(QStringLiteral(DEMO_DEVICE_KEY))));
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression("other.pem"));
        QVERIFY(!authenticator.loadPrivateKey(QUrl::fromLocalFile(file), QStringLiteral("wrong")));
        QCOMPARE(keyChanged.size(), 1);
        QCOMPARE(authenticator.privateKey().toPEM(), m_demoKey.toPEM());
        QVERIFY(authenticator.loadPrivateKey(QUrl::fromLocalFile(file), QStringLiteral("sesame")));
        QCOMPARE(keyChanged.size(), 2);
        QCOMPARE(authenticator.privateKey().toPEM(), other.toPEM());
    }
};

QTEST_GUILESS_MAIN(TestAuthenticators)
#include "tst_authenticators.moc"

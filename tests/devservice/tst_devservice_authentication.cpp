// Logins at the development service: credentials with impersonation, challenge-response in two
// phases, and the tokens it issues.

#include "serviceclient.h"

#include <devservice.h>
#include <tokensigner.h>

#include <VantroCrypto/privatekey.h>

#include <QFile>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QTest>

using vn::devservice::DevService;
using vn::test::Reply;
using vn::test::ServiceClient;

namespace {

const QString Ada = QStringLiteral("ada@example.com");
const QString AdaPassword = QStringLiteral("ada-demo-password");
const QString Bob = QStringLiteral("bob@example.com");

QJsonObject decodeSegment(const QByteArray &segment)
{
    return QJsonDocument::fromJson(QByteArray::fromBase64(segment)).object();
}

QJsonObject challengeAnswer(const QString &id, const QByteArray &secret)
{
    return QJsonObject{{"authType", "challenge-response"},
                       {"phase", "response"},
                       {"challengeId", id},
                       {"challenge", QString::fromLatin1(secret.toBase64())},
                       {"hostInfo", "kiosk"},
                       {"persistent", true}};
}

} // namespace

class TestDevServiceAuthentication : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void credentialLogin_data();
    void credentialLogin();
    void loginRecordsItsDetails();
    void tokenForm();
    void challengeResponse();
    void challengeFailures_data();
    void challengeFailures();

private:
    Reply requestChallenge(ServiceClient &client, const QString &fingerprint, QByteArray *secret);

    DevService m_service;
    vn::crypto::PrivateKey m_deviceKey;
};

void TestDevServiceAuthentication::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    QFile file(QStringLiteral(DEVSERVICE_SOURCE_DIR "/keys/demo-device.pem"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    m_deviceKey = vn::crypto::PrivateKey(file.readAll());
    QVERIFY(m_deviceKey.isValid());
}

void TestDevServiceAuthentication::credentialLogin_data()
{
    QTest::addColumn<QByteArray>("body");
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("actingUser");

    auto body = [](const char *key = nullptr, const QJsonValue &value = QJsonValue(),
                   const QString &user = Ada) {
        QJsonObject object{{"authType", "credentials"},
                           {"username", user},
                           {"password", user == Ada ? AdaPassword : "bob-demo-password"}};
        if (key) {
            object.insert(QLatin1String(key), value);
        }
        return QJsonDocument(object).toJson();
    };
    QTest::newRow("ada") << body() << 200 << Ada;
    QTest::newRow("ada as bob") << body("impersonate", Bob) << 200 << Bob;
    QTest::newRow("bob as ada") << body("impersonate", Ada, Bob) << 403 << QString();
    QTest::newRow("ada as nobody") << body("impersonate", "eve@example.com") << 403 << QString();
    QTest::newRow("wrong password") << body("password", "bob-demo-password") << 401 << QString();
    QTest::newRow("unknown user") << body("username", "eve@example.com") << 401 << QString();
    QTest::newRow("not JSON") << QByteArray("{\"authType\": \"credentials\",") << 400 << QString();
    QTest::newRow("unknown authType") << body("authType", "magic") << 400 << QString();
    QTest::newRow("user name a number") << body("username", 42) << 400 << QString();
    QTest::newRow("persistent a string") << body("persistent", "yes") << 400 << QString();
    QTest::newRow("impersonate a list") << body("impersonate", QJsonArray{Bob}) << 400 << QString();
}

void TestDevServiceAuthentication::credentialLogin()
{
    QFETCH(QByteArray, body);
    QFETCH(int, status);
    QFETCH(QString, actingUser);

    ServiceClient client(m_service.url());
    const Reply reply = client.post(QStringLiteral("authenticate"), body);
    QCOMPARE(reply.status, status);
    QCOMPARE(reply.object().contains(QLatin1String("token")), status == 200);
    if (status == 200) {
        client.setToken(reply.object().value(QLatin1String("token")).toString().toLatin1());
        QCOMPARE(client.get(QStringLiteral("consumer")).object().value(QLatin1String("email")).toString(),
                 actingUser);
    }
}

void TestDevServiceAuthentication::loginRecordsItsDetails()
{
    ServiceClient client(m_service.url());
    const QDateTime before = QDateTime::currentDateTimeUtc().addSecs(-1);
    client.setToken(client.login(Ada, AdaPassword, true, QStringLiteral("WS-17@lab [3f2a9c0d]")));
    const QJsonObject session = client.get(QStringLiteral("logins/current")).object();
    QCOMPARE(session.value(QLatin1String("hostInfo")).toString(), QStringLiteral("WS-17@lab [3f2a9c0d]"));
    QCOMPARE(session.value(QLatin1String("persistent")).toBool(), true);
    const QDateTime since =
        QDateTime::fromString(session.value(QLatin1String("since")).toString(), Qt::ISODate);
    QVERIFY(since >= before && since <= QDateTime::currentDateTimeUtc().addSecs(1));

    client.setToken(client.login(Ada, AdaPassword));
    QCOMPARE(
        client.get(QStringLiteral("logins/current")).object().value(QLatin1String("persistent")).toBool(),
        false);
}

void TestDevServiceAuthentication::tokenForm()
{
    m_service.setTokenLifetime(900);
    ServiceClient client(m_service.url());
    const QByteArray token = client.login(Ada, AdaPassword);
    const QList<QByteArray> segments = token.split('.');
    QCOMPARE(segments.size(), 3);
    for (const QByteArray &segment : segments) {
        // The account library decodes with the standard alphabet and needs no padding.
        QVERIFY2(!segment.contains('-') && !segment.contains('_') && !segment.contains('='),
                 segment.constData());
    }
    QCOMPARE(decodeSegment(segments.at(0)), (QJsonObject{{"alg", "RS256"}, {"typ", "JWT"}}));
    const QJsonObject claims = decodeSegment(segments.at(1));
    QCOMPARE(claims.value(QLatin1String("iss")).toString(),
             QStringLiteral("http://127.0.0.1:%1").arg(m_service.port()));
    QCOMPARE(claims.value(QLatin1String("sub")).toString(),
             m_service.scenario().users().constFirst().consumer.value(QLatin1String("id")).toString());
    QCOMPARE(claims.value(QLatin1String("exp")).toDouble() - claims.value(QLatin1String("iat")).toDouble(),
             900.0);
    QVERIFY(vn::devservice::TokenSigner::verify(token, m_service.scenario().tokenKey().publicKey()));
    QVERIFY(!vn::devservice::TokenSigner::verify(token, m_deviceKey.publicKey()));
    QVERIFY(client.login(Ada, AdaPassword) != token);

    // A token past its lifetime ends its login.
    m_service.setTokenLifetime(0);
    client.setToken(client.login(Ada, AdaPassword));
    QCOMPARE(client.get(QStringLiteral("consumer")).status, 401);
    m_service.setTokenLifetime(DevService::DefaultTokenLifetime);
}

Reply TestDevServiceAuthentication::requestChallenge(ServiceClient &client, const QString &fingerprint,
                                                     QByteArray *secret)
{
    const Reply reply =
        client.post(QStringLiteral("authenticate"), QJsonObject{{"authType", "challenge-response"},
                                                                {"phase", "challenge"},
                                                                {"fingerprint", fingerprint}});
    *secret = m_deviceKey.decrypt(
        QByteArray::fromBase64(reply.object().value(QLatin1String("challenge")).toString().toLatin1()));
    return reply;
}

void TestDevServiceAuthentication::challengeResponse()
{
    ServiceClient client(m_service.url());
    QByteArray secret;
    const Reply challenge =
        requestChallenge(client, QString::fromLatin1(m_deviceKey.fingerPrint().toBase64()), &secret);
    QCOMPARE(challenge.status, 200);
    QCOMPARE(secret.size(), 32);
    // Only the device's own key opens the challenge.
    const QByteArray encrypted =
        QByteArray::fromBase64(challenge.object().value(QLatin1String("challenge")).toString().toLatin1());
    QVERIFY(vn::crypto::PrivateKey(vn::crypto::AbstractKey::RSA, 2048).decrypt(encrypted).isEmpty());

    const QString id = challenge.object().value(QLatin1String("id")).toString();
    const Reply login = client.post(QStringLiteral("authenticate"), challengeAnswer(id, secret));
    QCOMPARE(login.status, 200);
    client.setToken(login.object().value(QLatin1String("token")).toString().toLatin1());
    QCOMPARE(client.get(QStringLiteral("consumer")).object().value(QLatin1String("email")).toString(), Ada);
    const QJsonObject session = client.get(QStringLiteral("logins/current")).object();
    QCOMPARE(session.value(QLatin1String("hostInfo")).toString(), QStringLiteral("kiosk"));
    QCOMPARE(session.value(QLatin1String("persistent")).toBool(), true);

    // A challenge is good for one answer.
    QCOMPARE(client.post(QStringLiteral("authenticate"), challengeAnswer(id, secret)).status, 401);
}

void TestDevServiceAuthentication::challengeFailures_data()
{
    QTest::addColumn<QString>("failure");
    QTest::addColumn<int>("status");
    QTest::addColumn<int>("rightAnswerAfterwards");
    QTest::newRow("unknown key") << "unknown key" << 401 << 0;
    QTest::newRow("wrong answer") << "wrong answer" << 401 << 401;
    QTest::newRow("unknown challenge") << "unknown challenge" << 401 << 200;
    QTest::newRow("expired") << "expired" << 401 << 401;
    QTest::newRow("no challenge id") << "no challenge id" << 400 << 200;
}

void TestDevServiceAuthentication::challengeFailures()
{
    QFETCH(QString, failure);
    QFETCH(int, status);
    QFETCH(int, rightAnswerAfterwards);

    ServiceClient client(m_service.url());
    QByteArray secret;
    QByteArray fingerprint = m_deviceKey.fingerPrint().toBase64();
    if (failure == QLatin1String("unknown key")) {
        fingerprint = QByteArray(32, 'x').toBase64();
    }
    m_service.setChallengeLifetime(
        failure == QLatin1String("expired") ? 50 : DevService::DefaultChallengeLifetime);
    const Reply challenge = requestChallenge(client, QString::fromLatin1(fingerprint), &secret);
    if (challenge.status != 200) {
        QCOMPARE(challenge.status, status);
        return;
    }
    const QString id = challenge.object().value(QLatin1String("id")).toString();
    QByteArray wrongSecret = secret;
    wrongSecret[0] = char(wrongSecret.at(0) ^ 1);
    QJsonObject answer = challengeAnswer(id, wrongSecret);
    if (failure != QLatin1String("wrong answer")) {
        answer = challengeAnswer(
            failure == QLatin1String("unknown challenge") ? QStringLiteral("no-such-id") : id, secret);
    }
    if (failure == QLatin1String("no challenge id")) {
        answer.remove(QStringLiteral("challengeId"));
    } else if (failure == QLatin1String("expired")) {
        QTest::qWait(100);
    }
    QCOMPARE(client.post(QStringLiteral("authenticate"), answer).status, status);
    // An answer to the challenge uses it up, right or wrong; a request that names none does not.
    QCOMPARE(client.post(QStringLiteral("authenticate"), challengeAnswer(id, secret)).status,
             rightAnswerAfterwards);
}

QTEST_GUILESS_MAIN(TestDevServiceAuthentication)
#include "tst_devservice_authentication.moc"

// Many clients at once: several threads log in, poll and log out against one service, and every
// request succeeds and the service's logins match what the clients did.

#include "serviceclient.h"

#include <devservice.h>

#include <VantroCrypto/privatekey.h>

#include <QFile>
#include <QLoggingCategory>
#include <QMutex>
#include <QSet>
#include <QTest>
#include <QThread>

#include <atomic>
#include <memory>

using vn::devservice::DevService;
using vn::test::Reply;
using vn::test::ServiceClient;

namespace {

constexpr int ClientThreads = 8;
constexpr int Rounds = 10;

struct Account
{
    QString username;
    QString password;
};

const Account Ada{QStringLiteral("ada@example.com"), QStringLiteral("ada-demo-password")};
const Account Bob{QStringLiteral("bob@example.com"), QStringLiteral("bob-demo-password")};

} // namespace

class TestDevServiceConcurrency : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void clientsLogInAndPollAtOnce();

private:
    // One client's work; returns a description of the first thing that went wrong, or nothing.
    QString runClient(int client);
    QByteArray deviceLogin(ServiceClient &client);

    DevService m_service;
    vn::crypto::PrivateKey m_deviceKey;
    QMutex m_mutex;
    QSet<QString> m_keptLogins;
    QSet<QByteArray> m_tokens;
};

void TestDevServiceConcurrency::initTestCase()
{
    QLoggingCategory::setFilterRules(QStringLiteral("vantro.devservice.request.info=false"));
    QVERIFY(m_service.listen(QStringLiteral("127.0.0.1"), 0));
    m_service.setJournalLimit(0);
    QFile file(QStringLiteral(DEVSERVICE_SOURCE_DIR "/keys/demo-device.pem"));
    QVERIFY(file.open(QIODevice::ReadOnly));
    m_deviceKey = vn::crypto::PrivateKey(file.readAll());
    QVERIFY(m_deviceKey.isValid());
}

QByteArray TestDevServiceConcurrency::deviceLogin(ServiceClient &client)
{
    const vn::crypto::PrivateKey key = m_deviceKey; // a copy per thread
    const Reply challenge = client.post(
        QStringLiteral("authenticate"),
        QJsonObject{{QStringLiteral("authType"), QStringLiteral("challenge-response")},
                    {QStringLiteral("phase"), QStringLiteral("challenge")},
                    {QStringLiteral("fingerprint"), QString::fromLatin1(key.fingerPrint().toBase64())}});
    const QByteArray secret = key.decrypt(
        QByteArray::fromBase64(challenge.object().value(QLatin1String("challenge")).toString().toLatin1()));
    const Reply login = client.post(
        QStringLiteral("authenticate"),
        QJsonObject{{QStringLiteral("authType"), QStringLiteral("challenge-response")},
                    {QStringLiteral("phase"), QStringLiteral("response")},
                    {QStringLiteral("challengeId"), challenge.object().value(QLatin1String("id"))},
                    {QStringLiteral("challenge"), QString::fromLatin1(secret.toBase64())}});
    return login.object().value(QLatin1String("token")).toString().toLatin1();
}

QString TestDevServiceConcurrency::runClient(int client)
{
    ServiceClient service(m_service.url());
    for (int round = 0; round < Rounds; ++round) {
        const bool device = (client + round) % 3 == 0;
        const Account account = device || client % 2 == 0 ? Ada : Bob;
        const QString where = QStringLiteral("client %1 round %2: ").arg(client).arg(round);

        service.setToken(QByteArray());
        const QByteArray token = device ? deviceLogin(service)
                                        : service.login(account.username, account.password, round % 2 == 0,
                                                        QStringLiteral("client %1").arg(client));
        if (token.isEmpty()) {
            return where + QLatin1String("login failed");
        }
        service.setToken(token);
        const Reply session = service.get(QStringLiteral("logins/current"));
        const Reply consumer = service.get(QStringLiteral("consumer"));
        const Reply resources = service.get(QStringLiteral("entitled"));
        const Reply identity = service.get(QStringLiteral("account/identity"));
        const Reply logins = service.get(QStringLiteral("logins?format=all_fields"));
        if (session.status != 200 || consumer.status != 200 || resources.status != 200 ||
            identity.status != 200 || logins.status != 200) {
            return where + QStringLiteral("a poll failed (%1 %2 %3 %4 %5)")
                               .arg(session.status)
                               .arg(consumer.status)
                               .arg(resources.status)
                               .arg(identity.status)
                               .arg(logins.status);
        }
        if (consumer.object().value(QLatin1String("email")).toString() != account.username ||
            resources.array().size() != (account.username == Ada.username ? 9 : 5) ||
            identity.array().size() != 2) {
            return where + QLatin1String("another account's data");
        }
        const QString id = session.object().value(QLatin1String("id")).toString();
        {
            QMutexLocker locker(&m_mutex);
            if (m_tokens.contains(token)) {
                return where + QLatin1String("a token was issued twice");
            }
            m_tokens.insert(token);
        }
        if (round % 2 == 1) {
            if (service.remove(QStringLiteral("logins/current")).status != 200 ||
                service.get(QStringLiteral("consumer")).status != 401) {
                return where + QLatin1String("logout failed");
            }
        } else {
            QMutexLocker locker(&m_mutex);
            m_keptLogins.insert(id);
        }
    }
    return QString();
}

void TestDevServiceConcurrency::clientsLogInAndPollAtOnce()
{
    std::vector<std::unique_ptr<QThread>> threads;
    QStringList failures;
    QMutex failureMutex;
    for (int client = 0; client < ClientThreads; ++client) {
        threads.emplace_back(QThread::create([this, client, &failures, &failureMutex] {
            const QString failure = runClient(client);
            if (!failure.isEmpty()) {
                QMutexLocker locker(&failureMutex);
                failures.append(failure);
            }
        }));
        threads.back()->start();
    }
    for (const auto &thread : threads) {
        QVERIFY(thread->wait(120000));
    }
    QVERIFY2(failures.isEmpty(), qPrintable(failures.join(QLatin1Char('\n'))));

    QSet<QString> live;
    for (const QJsonValue &login : m_service.logins()) {
        live.insert(login.toObject().value(QLatin1String("id")).toString());
    }
    QCOMPARE(live, m_keptLogins);
    QCOMPARE(m_keptLogins.size(), ClientThreads * Rounds / 2);
}

QTEST_GUILESS_MAIN(TestDevServiceConcurrency)
#include "tst_devservice_concurrency.moc"

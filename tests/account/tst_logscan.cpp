// Everything the libraries and the command-line client write during a whole session, with every
// logging category at debug level and the client's --verbose, holds no secret: no password, no
// access or service token, no credential, no private key text.

#include "accountfixture.h"
#include "testio.h"
#include "testlog.h"

#include <Vantro/getrequest.h>
#include <VantroAccount/loginlistmodel.h>

#include <cstdio>

using namespace vn::account;

static constexpr int Piece = 16;

// The lines of a PEM text between its armour: each is key material.
static QStringList pemLines(const QByteArray &pem)
{
    return QString::fromLatin1(pem).split(QLatin1Char('\n')).filter(QRegularExpression("^(?!-----).{21,}$"));
}

class TestLogScan : public QObject
{
    Q_OBJECT
    AccountFixture m_fixture;

    // Signs in with @p authenticator, whose access token is a secret, lists the logins, fetches
    // through each demo service once it holds a token, and signs out.
    void session(Account &account, AbstractAuthenticator *authenticator, QStringList &secrets)
    {
        account.login(authenticator);
        QTRY_VERIFY(account.status() == Account::Connected && !account.resourceList().isEmpty());
        secrets.append(QString::fromLatin1(QByteArray(account.accessToken())));
        const LoginListModel logins;
        QTRY_VERIFY(logins.rowCount() > 0);
        for (const char *name : {"demo-files", "demo-reports"}) {
            Service *service = AccountFixture::findService(account, QLatin1String(name));
            QVERIFY(service);
            service->enable();
            QTRY_COMPARE(service->status(), Service::Ready);
            bool answered = false;
            connect(service->getRequest(QUrl(QStringLiteral("items?page=1"))), &vn::Request::finished, this,
                    [&answered] { answered = true; });
            QTRY_VERIFY(answered);
        }
        account.logout();
        QTRY_COMPARE(account.status(), Account::Disconnected);
    }

private Q_SLOTS:
    void wholeSession()
    {
        QVERIFY(m_fixture.start(0.01));
        m_fixture.service.setJournalLimit(100000);
        QLoggingCategory::setFilterRules(QStringLiteral("vantro.*=true"));
        vn::test::collectLogMessagesOnly();
        QStringList &lines = vn::test::loggedMessages();
        QStringList secrets{demo::AdaPassword};
        {
            Account account;
            CredentialAuthenticator password;
            AccountFixture::asAda(password, true);
            ChallengeResponseAuthenticator device;
            QVERIFY(device.loadPrivateKey(QUrl::fromLocalFile(QStringLiteral(DEMO_DEVICE_KEY))));
            secrets += pemLines(account.clientKey().toPEM()) + pemLines(device.privateKey().toPEM());
            session(account, &password, secrets);
            session(account, &device, secrets);
        }

        // The client, signing in, using a service and signing out with its library's lines shown, in
        // a profile of its own (this process is done with its profile).
        const QTemporaryDir profiles;
        qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(profiles.path()));
        const QList<QStringList> commands{
            {"login", demo::Ada, "--password-stdin"}, {"services", "get", "demo-files", "items"}, {"logout"}};
        for (const QStringList &command : commands) {
            const auto client =
                vn::test::runProcess(QStringLiteral(VANTRO_ACCOUNT_PROGRAM),
                                     command + QStringList{"--verbose"}, demo::AdaPassword.toUtf8() + '\n');
            QCOMPARE(client.exitCode, 0);
            lines += QString::fromUtf8(client.out + client.err).split(QLatin1Char('\n'));
        }

        // What the service saw: every token it received, the played services' among them.
        for (const auto &request : m_fixture.service.journal()) {
            const QByteArray bearer = request.headers.value("authorization");
            if (bearer.startsWith("Bearer ")) {
                secrets.append(QString::fromLatin1(bearer.mid(7)));
            }
        }
        // The secret members of resource payloads (passwords, tokens, secrets), at any depth; user
        // names and OAuth consumer keys name an account rather than prove it.
        const QRegularExpression secretMember(
            QStringLiteral("\"[^\"]*(password|token|secret)[^\"]*\":\"([^\"]*)\""),
            QRegularExpression::CaseInsensitiveOption);
        for (const auto &resource : m_fixture.service.scenario().resources()) {
            const QJsonDocument payload(resource.record.value(QLatin1String("payload")).toObject());
            auto matches =
                secretMember.globalMatch(QString::fromUtf8(payload.toJson(QJsonDocument::Compact)));
            while (matches.hasNext()) {
                secrets.append(matches.next().captured(2));
            }
        }
        secrets.removeDuplicates();
        QVERIFY2(secrets.size() > 30, qPrintable(QString::number(secrets.size())));
        QVERIFY2(lines.size() > 100, qPrintable(QString::number(lines.size())));
        // Part of a secret is a leak too: no line may hold any 16 characters in a row of one.
        QSet<QString> pieces;
        for (const QString &secret : qAsConst(secrets)) {
            QVERIFY2(secret.size() >= Piece, "a secret too short to be found by its pieces");
            for (int at = 0; at + Piece <= secret.size(); ++at) {
                pieces.insert(secret.mid(at, Piece));
            }
        }
        for (const QString &line : qAsConst(lines)) {
            for (int at = 0; at + Piece <= line.size(); ++at) {
                // The line's category, never the secret, goes into the failure; a client's line may
                // have none, and then its start would be the secret.
                QVERIFY2(!pieces.contains(line.mid(at, Piece)),
                         qPrintable(QStringLiteral("a secret in: ") + line.left(at).section(':', 0, 0)));
            }
        }
        std::printf("%d lines scanned for %d secrets\n", int(lines.size()), int(secrets.size()));
    }
};

QTEST_GUILESS_MAIN(TestLogScan)
#include "tst_logscan.moc"

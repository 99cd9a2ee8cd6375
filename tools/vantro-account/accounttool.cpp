#include "accounttool.h"

#include "accountreport.h"
#include "progress.h"
#include "terminal.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <VantroAccount/account.h>
#include <VantroAccount/challengeresponseauthenticator.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/service.h>
#include <VantroAccount/session.h>

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QCoreApplication>
#include <QDir>
#include <QJsonDocument>
#include <QLoggingCategory>
#include <QPointer>
#include <QRegularExpression>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace vn::tools {

using vn::account::Account;

namespace {

constexpr int DefaultWaitSeconds = 5;
// A PEM private key is a few kilobytes; a larger file is not one, and is not read whole.
constexpr qint64 MaximumKeyFileBytes = 64 * 1024;
constexpr int MaximumWaitSeconds = 600;

// The library checks a restored login at its first refresh tick, 200 ms after start. Asking the
// service ourselves only after that keeps the library's check first in line, so that a service
// which revokes the login does so to the library, which then clears the profile as it must.
constexpr int OwnCheckDelayMilliseconds = 500;

const char Usage[] = R"(Usage: vantro-account [OPTIONS] COMMAND [ARGUMENTS]

Sign in to the account service, see what it says about the account, and sign out.

Commands:
  login USER [--password-stdin] [--no-persist]
      Sign in as USER. "USER>>TARGET" signs in as USER and acts as TARGET (USER must be allowed
      to). The password is asked on the terminal without echo, or read from the first line of
      standard input with --password-stdin. The login is kept in the profile for the following
      commands; --no-persist makes a one-shot session instead: sign in, show who is signed in,
      and sign out again, keeping nothing.
  login --key FILE [--passphrase-stdin] [--no-persist]
      Sign in as a device with the private key in FILE (PEM), which the service knows by its
      public half. The key never leaves this machine: it answers the service's challenge. The
      passphrase of an encrypted key is asked on the terminal without echo, or read from the
      first line of standard input with --passphrase-stdin.
  logout
      End this client's login at the service and clear the profile but for the client's own id
      and key. Without the service the login is still cleared here.
  status
      Status, online, client id, service URL, session, consumer with permissions (as flag names)
      and roles, whether the identity chain verifies, and the resources counted by type.
  resources
      Each resource: type, id, owner, priority, whether its signature verified, and the public
      members of its payload. Credentials and other secrets are never shown.
  services
      Each service the account may use: name, URL and id. Services are enabled only by the
      program that uses them, so here their status is "disabled" until 'services get'.
  services get NAME PATH
      Enable the service NAME, wait until its token has arrived, and GET PATH (resolved against
      the service's URL) with it; prints the answer's body. The token is never shown.
  logins
      The account's logins at the service; "*" marks this client's own.
  logins end ID
      End another login of the account (this client's own ends with logout).

Options:
  --profile NAME          use the profile NAME instead of "default"
  --profile-location DIR  keep profiles below DIR (sets VANTRO_PROFILE_LOCATION)
  --json                  print the result of login, status, resources, services or logins as JSON
  --wait SECONDS          longest wait for the service's check and data (default 5)
  --verbose               show the library's log lines (categories vantro.*) on standard error
  -h, --help              show this help
  -v, --version           show the version

Waiting for the service:
  The library restores a saved login from the profile and checks it with the service at once.
  status, resources, logins and logins end wait for that check; if it does not bring the account
  online, they ask the service themselves to tell why (unreachable, failing, or login ended).
  Then status and resources, and login after signing in, wait until the consumer, the identity
  chain and the resources have arrived; the library fetches them right after the check. Those
  waits end after --wait seconds together; status and resources then show what the profile
  holds and say what is missing. Signing in and out are bounded by their own request time-outs.

Exit status:
  0 success, 1 failure (sign-in refused, service unreachable or failing), 2 usage error,
  3 not signed in (also when the service has ended the login).

Environment:
  VANTRO_ACCOUNT_CONFIG    signed account configuration naming the service (default: built in)
  VANTRO_PROFILE_LOCATION  folder below which profiles live (default: the user's data folder)
)";

QString serviceName(Account &account)
{
    // User information in the address would be a credential; messages name the service without it.
    return account.serviceUrl().toString(QUrl::RemoveUserInfo);
}

/// Login ids go into a URL path: only plain characters, so that an id never reaches another path.
bool isPlainLoginId(const QString &loginId)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9._~-]+$"));
    return plain.match(loginId).hasMatch() && loginId != QLatin1String(".") && loginId != QLatin1String("..");
}

bool isPlainProfileName(const QString &name)
{
    return !name.isEmpty() && !name.contains(QLatin1Char('/')) && !name.startsWith(QLatin1Char('.'));
}

} // namespace

int AccountTool::run(const QStringList &arguments)
{
    QCommandLineParser parser;
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, QString());
    const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")}, QString());
    const QCommandLineOption profile(QStringLiteral("profile"), QString(), QStringLiteral("NAME"));
    const QCommandLineOption location(QStringLiteral("profile-location"), QString(), QStringLiteral("DIR"));
    const QCommandLineOption json(QStringLiteral("json"), QString());
    const QCommandLineOption wait(QStringLiteral("wait"), QString(), QStringLiteral("SECONDS"));
    const QCommandLineOption verbose(QStringLiteral("verbose"), QString());
    const QCommandLineOption passwordStdin(QStringLiteral("password-stdin"), QString());
    const QCommandLineOption noPersist(QStringLiteral("no-persist"), QString());
    const QCommandLineOption key(QStringLiteral("key"), QString(), QStringLiteral("FILE"));
    const QCommandLineOption passphraseStdin(QStringLiteral("passphrase-stdin"), QString());
    parser.addOptions({help, version, profile, location, json, wait, verbose, passwordStdin, noPersist, key,
                       passphraseStdin});
    if (!parser.parse(arguments))
        return usageError(parser.errorText());
    if (parser.isSet(help)) {
        Terminal::printOut(QString::fromUtf8(Usage));
        return Success;
    }
    if (parser.isSet(version)) {
        Terminal::printOut(QStringLiteral("vantro-account %1\n").arg(QCoreApplication::applicationVersion()));
        return Success;
    }

    const QStringList positional = parser.positionalArguments();
    const QString command = positional.value(0);
    const QStringList commandArguments = positional.mid(1);
    const bool endsLogin =
        command == QLatin1String("logins") && commandArguments.value(0) == QLatin1String("end");
    const bool getsFromService =
        command == QLatin1String("services") && commandArguments.value(0) == QLatin1String("get");
    const bool withKey = parser.isSet(key);
    if (command.isEmpty())
        return usageError(QStringLiteral("No command given."));
    const QStringList commands = {QStringLiteral("login"),    QStringLiteral("logout"),
                                  QStringLiteral("status"),   QStringLiteral("resources"),
                                  QStringLiteral("services"), QStringLiteral("logins")};
    if (!commands.contains(command))
        return usageError(QStringLiteral("Unknown command \"%1\".").arg(command));
    if (command == QLatin1String("login") && !withKey && commandArguments.size() != 1)
        return usageError(QStringLiteral("login takes one user name, as in 'vantro-account login USER'."));
    if (command == QLatin1String("login") && withKey && !commandArguments.isEmpty())
        return usageError(QStringLiteral("login --key FILE takes no user name: the key names the account."));
    if (withKey && (command != QLatin1String("login") || parser.value(key).isEmpty()))
        return usageError(QStringLiteral("--key takes a key file and goes with login only."));
    if (parser.isSet(passphraseStdin) && !withKey)
        return usageError(QStringLiteral("--passphrase-stdin goes with login --key only."));
    if (parser.isSet(passwordStdin) && withKey)
        return usageError(QStringLiteral("A device login has no password; --passphrase-stdin reads the "
                                         "passphrase of an encrypted key."));
    if (getsFromService && commandArguments.size() != 3)
        return usageError(
            QStringLiteral("services get takes a service name and a path, as in 'vantro-account services "
                           "get NAME PATH'."));
    if (endsLogin && commandArguments.size() != 2)
        return usageError(
            QStringLiteral("logins end takes one login id, as in 'vantro-account logins end ID'."));
    if (command != QLatin1String("login") && !endsLogin && !getsFromService && !commandArguments.isEmpty())
        return usageError(QStringLiteral("Unexpected argument \"%1\".").arg(commandArguments.first()));
    if (command != QLatin1String("login") && (parser.isSet(passwordStdin) || parser.isSet(noPersist)))
        return usageError(QStringLiteral("--password-stdin and --no-persist go with login only."));
    if (parser.isSet(json) && (command == QLatin1String("logout") || endsLogin || getsFromService))
        return usageError(QStringLiteral("--json goes with login, status, resources, services and logins."));

    double waitSeconds = DefaultWaitSeconds;
    if (parser.isSet(wait)) {
        bool isNumber = false;
        waitSeconds = parser.value(wait).toDouble(&isNumber);
        if (!isNumber || !std::isfinite(waitSeconds) || waitSeconds < 1 || waitSeconds > MaximumWaitSeconds) {
            return usageError(QStringLiteral("--wait takes seconds from 1 to %1, not \"%2\".")
                                  .arg(MaximumWaitSeconds)
                                  .arg(parser.value(wait)));
        }
    }
    if (parser.isSet(profile) && !isPlainProfileName(parser.value(profile))) {
        return usageError(
            QStringLiteral("--profile takes a plain name without \"/\" or a leading \".\", not \"%1\".")
                .arg(parser.value(profile)));
    }

    // Everything that decides which profile the library opens comes before the first Account.
    if (parser.isSet(location)) {
        if (parser.value(location).isEmpty())
            return usageError(QStringLiteral("--profile-location takes a folder."));
        qputenv("VANTRO_PROFILE_LOCATION", QFile::encodeName(QDir(parser.value(location)).absolutePath()));
    }
    if (parser.isSet(profile))
        QCoreApplication::instance()->setProperty("profile", parser.value(profile));
    // The library's own lines would drown the one-sentence messages; --verbose brings them back.
    QLoggingCategory::setFilterRules(parser.isSet(verbose) ? QStringLiteral("vantro.*=true")
                                                           : QStringLiteral("vantro.*=false"));

    m_waitMilliseconds = int(waitSeconds * 1000);
    m_deadline = QDeadlineTimer(m_waitMilliseconds);
    m_json = parser.isSet(json);
    m_passwordFromStandardInput = parser.isSet(passwordStdin);
    m_passphraseFromStandardInput = parser.isSet(passphraseStdin);
    m_persistent = !parser.isSet(noPersist);

    if (command == QLatin1String("login"))
        return withKey ? loginWithKey(parser.value(key)) : login(commandArguments.first());
    if (command == QLatin1String("logout"))
        return logout();
    if (command == QLatin1String("status"))
        return status();
    if (command == QLatin1String("resources"))
        return resources();
    if (getsFromService)
        return getFromService(commandArguments.at(1), commandArguments.at(2));
    if (command == QLatin1String("services"))
        return services();
    if (endsLogin) {
        if (!isPlainLoginId(commandArguments.at(1)))
            return usageError(
                QStringLiteral("\"%1\" is not a login id; list them with 'vantro-account logins'.")
                    .arg(commandArguments.at(1)));
        return endLogin(commandArguments.at(1));
    }
    return logins();
}

int AccountTool::login(const QString &userName)
{
    const QStringList pieces = userName.split(QStringLiteral(">>"), Qt::SkipEmptyParts);
    const QString user = pieces.value(0).trimmed();
    const QString target = pieces.value(1).trimmed();
    if (user.isEmpty())
        return usageError(
            QStringLiteral("The user name is empty; give it as in 'vantro-account login USER'."));

    Account account(nullptr);
    if (account.status() == Account::Connected)
        return alreadySignedIn(account);

    QString password;
    QString errorString;
    if (!Terminal::readSecret(m_passwordFromStandardInput ? Terminal::SecretSource::StandardInput
                                                          : Terminal::SecretSource::Terminal,
                              QStringLiteral("Password for %1: ").arg(user), QStringLiteral("password"),
                              QStringLiteral("--password-stdin"), &password, &errorString)) {
        return usageError(errorString);
    }

    vn::account::CredentialAuthenticator authenticator;
    authenticator.setUserName(userName);
    authenticator.setPassword(password);
    const QString refusal =
        target.isEmpty()
            ? QStringLiteral("The service refused the sign-in as %1: wrong user name or password; check "
                             "them and try again.")
                  .arg(user)
            : QStringLiteral("The service refused the sign-in as %1 acting as %2: wrong user name or "
                             "password, or %1 may not act as %2; check them and try again.")
                  .arg(user, target);
    return signIn(account, authenticator, QStringLiteral("as %1").arg(user), userName, refusal);
}

int AccountTool::loginWithKey(const QString &keyFile)
{
    QFile file(keyFile);
    if (!file.open(QIODevice::ReadOnly))
        return fail(Failure,
                    QStringLiteral("Cannot read the key file %1: %2.").arg(keyFile, file.errorString()));
    const QByteArray pem = file.read(MaximumKeyFileBytes);
    file.close();

    Account account(nullptr);
    if (account.status() == Account::Connected)
        return alreadySignedIn(account);

    vn::crypto::PrivateKey key(pem);
    if (!key.isValid() && pem.contains("ENCRYPTED")) {
        QString passphrase;
        QString errorString;
        if (!Terminal::readSecret(m_passphraseFromStandardInput ? Terminal::SecretSource::StandardInput
                                                                : Terminal::SecretSource::Terminal,
                                  QStringLiteral("Passphrase for %1: ").arg(keyFile),
                                  QStringLiteral("passphrase"), QStringLiteral("--passphrase-stdin"),
                                  &passphrase, &errorString)) {
            return usageError(errorString);
        }
        key = vn::crypto::PrivateKey(pem, passphrase);
        if (!key.isValid())
            return fail(Failure, QStringLiteral("The key in %1 does not open with this passphrase; check it "
                                                "and try again.")
                                     .arg(keyFile));
    }
    if (!key.isValid())
        return fail(Failure,
                    QStringLiteral("%1 holds no private key in PEM form (PKCS#8 or RSA).").arg(keyFile));

    vn::account::ChallengeResponseAuthenticator authenticator;
    authenticator.setPrivateKey(key);
    const QString refusal = QStringLiteral("The service refused the sign-in with the key in %1: it does not "
                                           "know this key, or the key could not answer its challenge; ask "
                                           "the service's operator to register the key.")
                                .arg(keyFile);
    return signIn(account, authenticator, QStringLiteral("with the key in %1").arg(keyFile),
                  QStringLiteral("the device key"), refusal);
}

int AccountTool::alreadySignedIn(Account &account)
{
    const vn::account::Consumer *consumer = account.consumer();
    return fail(Failure, QStringLiteral("Already signed in%1; sign out first with 'vantro-account logout'.")
                             .arg(consumer ? QStringLiteral(" as ") + consumer->email() : QString()));
}

int AccountTool::signIn(Account &account, vn::account::AbstractAuthenticator &authenticator,
                        const QString &activity, const QString &signedInAs, const QString &refusal)
{
    const QString service = serviceName(account);
    authenticator.setPersistent(m_persistent);
    Account::Error error = Account::NoError;
    QObject context;
    QObject::connect(&account, &Account::error, &context,
                     [&error](Account::Error reported) { error = reported; });
    account.login(&authenticator);
    Progress::waitUntil(QStringLiteral("Signing in to %1 %2").arg(service, activity),
                        [&account] { return account.status() != Account::Connecting; });

    if (account.status() != Account::Connected) {
        switch (error) {
        case Account::AuthenticationFailed:
            return fail(Failure, refusal);
        case Account::ServiceUnavailable:
            return requestFailed(account, 0, QStringLiteral("sign-in"));
        case Account::ServiceFailure:
            return fail(Failure, QStringLiteral("The account service at %1 failed with a server error while "
                                                "signing in; try again later, or ask its operator if it "
                                                "persists.")
                                     .arg(service));
        case Account::InvalidLoginData:
            return usageError(
                QStringLiteral("The user name is empty; give it as in 'vantro-account login USER'."));
        case Account::AlreadyLoggedIn:
        case Account::AlreadyBusy:
            return fail(Failure,
                        QStringLiteral("Another sign-in or sign-out of this profile is under way; wait "
                                       "for it to end and try again."));
        default:
            return fail(Failure,
                        QStringLiteral("The sign-in to %1 did not complete; try again.").arg(service));
        }
    }

    // The time it took to type the password is not the service's: its wait starts now.
    m_deadline = QDeadlineTimer(m_waitMilliseconds);
    waitForAccountData(account);
    if (m_json) {
        printJson(AccountReport::status(account));
    } else {
        const vn::account::Consumer *consumer = account.consumer();
        Terminal::printOut(
            QStringLiteral("Signed in to %1 as %2.\n")
                .arg(service, consumer ? QStringLiteral("%1 <%2>").arg(consumer->name(), consumer->email())
                                       : signedInAs));
    }
    if (m_persistent)
        return Success;

    // A one-shot session: end it now, so that neither the service nor the profile keeps it.
    account.logout();
    Progress::waitUntil(QStringLiteral("Signing out again (--no-persist)"),
                        [&account] { return account.status() == Account::Disconnected; });
    if (error != Account::NoError)
        return logoutFailed(account, error);
    if (!m_json)
        Terminal::printOut(QStringLiteral("Signed out again: --no-persist keeps nothing.\n"));
    return Success;
}

int AccountTool::logout()
{
    Account account(nullptr);
    if (account.status() != Account::Connected)
        return fail(NotSignedIn, QStringLiteral("Not signed in, so there is nothing to sign out from."));

    Account::Error error = Account::NoError;
    QObject context;
    QObject::connect(&account, &Account::error, &context,
                     [&error](Account::Error reported) { error = reported; });
    account.logout();
    Progress::waitUntil(QStringLiteral("Signing out of %1").arg(serviceName(account)),
                        [&account] { return account.status() == Account::Disconnected; });
    if (error != Account::NoError)
        return logoutFailed(account, error);
    Terminal::printOut(QStringLiteral("Signed out.\n"));
    return Success;
}

int AccountTool::status()
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check == Check::Online)
        waitForAccountData(account);
    // The report is the answer even when the check failed: offline or signed out is a status too.
    const QJsonObject report = AccountReport::status(account);
    if (m_json)
        printJson(report);
    else
        Terminal::printOut(AccountReport::statusText(report));
    return check == Check::Online ? Success : checkFailed(account, check, responseCode);
}

int AccountTool::resources()
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online)
        return checkFailed(account, check, responseCode);
    waitForAccountData(account);
    const QJsonArray list = AccountReport::resources(account);
    if (m_json)
        printJson(list);
    else
        Terminal::printOut(AccountReport::resourcesText(list));
    return Success;
}

int AccountTool::services()
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online)
        return checkFailed(account, check, responseCode);
    waitForAccountData(account);
    const QJsonArray list = AccountReport::services(account);
    if (m_json)
        printJson(list);
    else
        Terminal::printOut(AccountReport::servicesText(list));
    return Success;
}

int AccountTool::getFromService(const QString &name, const QString &path)
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online)
        return checkFailed(account, check, responseCode);
    waitForAccountData(account);
    vn::account::Service *service = nullptr;
    for (vn::account::Resource *resource : account.findResources(QStringLiteral("vantro.resource.Service"))) {
        auto *candidate = qobject_cast<vn::account::Service *>(resource);
        if (candidate && candidate->name() == name) {
            service = candidate;
            break;
        }
    }
    if (!service)
        return fail(Failure, QStringLiteral("The account has no service \"%1\"; list its services with "
                                            "'vantro-account services'.")
                                 .arg(name));

    service->enable();
    // The library retries a refused token on its own schedule; here the wait is bounded.
    m_deadline = QDeadlineTimer(m_waitMilliseconds);
    if (!Progress::waitUntil(
            QStringLiteral("Fetching a token for %1 from %2").arg(name, serviceName(account)),
            [service] { return service->status() == vn::account::Service::Ready; }, m_deadline)) {
        return fail(Failure, QStringLiteral("The account service at %1 issued no token for %2 within %3 s; "
                                            "'--verbose' shows its answer, '--wait' allows longer.")
                                 .arg(serviceName(account), name)
                                 .arg(m_waitMilliseconds / 1000.0));
    }

    QPointer<vn::GetRequest> request = service->getRequest(QUrl(path, QUrl::TolerantMode));
    request->setSuppressErrors(true);
    const QUrl target = request->url().adjusted(QUrl::RemoveUserInfo | QUrl::RemoveQuery);
    bool finished = false;
    QByteArray body;
    QObject::connect(request.data(), &vn::Request::finished, request.data(), [&] {
        finished = true;
        responseCode = request->responseCode();
        body = request->rawResponse();
    });
    Progress::waitUntil(QStringLiteral("Fetching %1").arg(target.toString()),
                        [&finished] { return finished; });
    if (responseCode == 0)
        return fail(Failure, QStringLiteral("The service %1 at %2 could not be reached; check that it is "
                                            "running.")
                                 .arg(name, target.toString()));
    Terminal::printOut(QString::fromUtf8(body) + (body.endsWith('\n') || body.isEmpty() ? "" : "\n"));
    if (responseCode < 200 || responseCode > 299)
        return fail(Failure, QStringLiteral("The service %1 answered HTTP %2 for %3.")
                                 .arg(name)
                                 .arg(responseCode)
                                 .arg(target.toString()));
    return Success;
}

int AccountTool::logins()
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online)
        return checkFailed(account, check, responseCode);

    QPointer<vn::GetRequest> request = account.getRequest(QUrl(QStringLiteral("logins?format=all_fields")));
    request->setSuppressErrors(true);
    QJsonArray serviceLogins;
    bool finished = false;
    QObject::connect(request.data(), &vn::Request::finished, request.data(), [&] {
        finished = true;
        responseCode = request->responseCode();
        if (request->isOk(200))
            serviceLogins = request->responseArray();
    });
    Progress::waitUntil(QStringLiteral("Listing the logins at %1").arg(serviceName(account)),
                        [&finished] { return finished; });
    if (responseCode != 200)
        return requestFailed(account, responseCode, QStringLiteral("login list"));

    const vn::account::Session *session = account.session();
    const QJsonArray list = AccountReport::logins(serviceLogins, session ? session->identifier() : QString());
    if (m_json)
        printJson(list);
    else
        Terminal::printOut(AccountReport::loginsText(list));
    return Success;
}

int AccountTool::endLogin(const QString &loginId)
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online)
        return checkFailed(account, check, responseCode);
    const vn::account::Session *session = account.session();
    if (session && session->identifier() == loginId) {
        return fail(Failure,
                    QStringLiteral("Login %1 is this client's own; end it with 'vantro-account logout'.")
                        .arg(loginId));
    }

    QPointer<vn::DeleteRequest> request =
        account.deleteRequest(QUrl(QStringLiteral("logins/") + loginId, QUrl::TolerantMode));
    request->setSuppressErrors(true);
    bool finished = false;
    QObject::connect(request.data(), &vn::Request::finished, request.data(), [&] {
        finished = true;
        responseCode = request->responseCode();
    });
    Progress::waitUntil(QStringLiteral("Ending login %1").arg(loginId), [&finished] { return finished; });
    if (responseCode == 404) {
        return fail(Failure,
                    QStringLiteral("The account has no login %1 at the service; list its logins with "
                                   "'vantro-account logins'.")
                        .arg(loginId));
    }
    // Only 200 means the service ended it.
    if (responseCode != 200)
        return requestFailed(account, responseCode, QStringLiteral("end of login %1").arg(loginId));
    Terminal::printOut(QStringLiteral("Ended login %1.\n").arg(loginId));
    return Success;
}

AccountTool::Check AccountTool::checkLogin(Account &account, int *responseCode)
{
    if (account.status() != Account::Connected)
        return Check::NotSignedIn;

    // The library keeps its check's outcome to itself unless it changes the account: a login that
    // is still valid turns online, a revoked one signs out. A failing or unreachable service
    // changes nothing, so ask once ourselves when the account is not online soon after the start.
    int ownCheck = -1;
    QObject context;
    QPointer<vn::GetRequest> request;
    QTimer::singleShot(OwnCheckDelayMilliseconds, &context, [&] {
        if (account.isOnline() || account.status() != Account::Connected)
            return;
        request = account.getRequest(QUrl(QStringLiteral("logins/current")));
        request->setSuppressErrors(true);
        QObject::connect(request.data(), &vn::Request::finished, &context,
                         [&] { ownCheck = request->responseCode(); });
    });
    Progress::waitUntil(
        QStringLiteral("Checking the login with %1").arg(serviceName(account)),
        [&] {
            // 200 and 401 are the library's to act on: it goes online, or signs out and clears the profile.
            return account.isOnline() || account.status() != Account::Connected ||
                   (ownCheck >= 0 && ownCheck != 200 && ownCheck != 401);
        },
        m_deadline);

    *responseCode = ownCheck;
    Check check = Check::TimedOut;
    if (account.isOnline())
        check = Check::Online;
    else if (account.status() != Account::Connected || ownCheck == 401)
        check = Check::Revoked;
    else if (ownCheck == 0)
        check = Check::Unreachable;
    else if (ownCheck > 0 && ownCheck != 200)
        check = Check::ServiceError;
    // Our own question is moot now; aborting it reports to nobody, the context is about to go.
    if (request && !request->isFinished()) {
        QObject::disconnect(request.data(), nullptr, &context, nullptr);
        request->abort();
    }
    return check;
}

void AccountTool::waitForAccountData(Account &account)
{
    const auto complete = [&account] {
        return account.consumer() && account.identity() && !account.resourceList().isEmpty();
    };
    if (Progress::waitUntil(QStringLiteral("Fetching the account's data from %1").arg(serviceName(account)),
                            complete, m_deadline)) {
        return;
    }
    QStringList missing;
    if (!account.consumer())
        missing.append(QStringLiteral("consumer"));
    if (!account.identity())
        missing.append(QStringLiteral("identity chain"));
    if (account.resourceList().isEmpty())
        missing.append(QStringLiteral("resources"));
    Terminal::printError(
        QStringLiteral("Warning: the service sent no %1 within %2 s; what follows is what the "
                       "profile holds (allow longer with --wait).\n")
            .arg(missing.join(QStringLiteral(", ")))
            .arg(m_waitMilliseconds / 1000.0));
}

int AccountTool::checkFailed(Account &account, Check check, int responseCode)
{
    switch (check) {
    case Check::Online:
        return Success;
    case Check::NotSignedIn:
        return fail(NotSignedIn, QStringLiteral("Not signed in; sign in with 'vantro-account login USER'."));
    case Check::Revoked:
        return fail(NotSignedIn,
                    QStringLiteral("The service has ended this login (signed out elsewhere, expired "
                                   "or revoked); sign in again with 'vantro-account login USER'."));
    case Check::Unreachable:
    case Check::ServiceError:
        return requestFailed(account, responseCode, QStringLiteral("login check"));
    case Check::TimedOut:
        break;
    }
    return fail(Failure,
                QStringLiteral("The account service at %1 did not confirm the login within %2 s; try "
                               "again, or allow longer with --wait.")
                    .arg(serviceName(account))
                    .arg(m_waitMilliseconds / 1000.0));
}

int AccountTool::requestFailed(Account &account, int responseCode, const QString &what)
{
    const QString service = serviceName(account);
    if (responseCode <= 0) {
        return fail(Failure,
                    QStringLiteral("The account service at %1 could not be reached; check that it is "
                                   "running and that VANTRO_ACCOUNT_CONFIG names it.")
                        .arg(service));
    }
    if (responseCode == 401) {
        return fail(NotSignedIn,
                    QStringLiteral("The service has ended this login (signed out elsewhere, expired "
                                   "or revoked); sign in again with 'vantro-account login USER'."));
    }
    if (responseCode >= 500) {
        return fail(Failure,
                    QStringLiteral("The account service at %1 failed with HTTP %2 on the %3; try again "
                                   "later, or ask its operator if it persists.")
                        .arg(service)
                        .arg(responseCode)
                        .arg(what));
    }
    return fail(Failure, QStringLiteral("The account service at %1 answered the %2 with HTTP %3; check that "
                                        "VANTRO_ACCOUNT_CONFIG names the right service.")
                             .arg(service, what)
                             .arg(responseCode));
}

int AccountTool::logoutFailed(Account &account, Account::Error error)
{
    return fail(Failure,
                QStringLiteral("Signed out here, but the account service at %1 %2, so the login stays "
                               "valid there until it expires; end it from another sign-in with "
                               "'vantro-account logins end ID'.")
                    .arg(serviceName(account), error == Account::ServiceUnavailable
                                                   ? QStringLiteral("could not be reached")
                                                   : QStringLiteral("failed to end it")));
}

int AccountTool::fail(int exitCode, const QString &message)
{
    Terminal::printError(message + QLatin1Char('\n'));
    return exitCode;
}

int AccountTool::usageError(const QString &message)
{
    return fail(UsageError, message + QStringLiteral(" See 'vantro-account --help'."));
}

void AccountTool::printJson(const QJsonValue &value)
{
    const QJsonDocument document =
        value.isArray() ? QJsonDocument(value.toArray()) : QJsonDocument(value.toObject());
    Terminal::printOut(QString::fromUtf8(document.toJson(QJsonDocument::Indented)));
}

} // namespace vn::tools

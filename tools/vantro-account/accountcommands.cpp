#include "accountcommands.h"

#include "accountreport.h"
#include "progress.h"
#include "terminal.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <VantroAccount/challengeresponseauthenticator.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/credentialauthenticator.h>
#include <VantroAccount/service.h>
#include <VantroAccount/session.h>

#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>

namespace vn::tools {

using vn::account::Account;

namespace {

// A PEM private key is a few kilobytes; a larger file is not one, and is not read whole.
constexpr qint64 MaximumKeyFileBytes = 64 * 1024;

/// Login ids go into a URL path: only plain characters, so that an id never reaches another path.
bool isPlainLoginId(const QString &loginId)
{
    static const QRegularExpression plain(QStringLiteral("^[A-Za-z0-9._~-]+$"));
    return plain.match(loginId).hasMatch() && loginId != QLatin1String(".") && loginId != QLatin1String("..");
}

Terminal::SecretSource secretSource(const CommandSettings &settings)
{
    return settings.secretFromStandardInput ? Terminal::SecretSource::StandardInput
                                            : Terminal::SecretSource::Terminal;
}

} // namespace

AccountCommands::AccountCommands(const CommandSettings &settings)
    : m_settings(settings)
    , m_deadline(settings.waitMilliseconds)
{}

int AccountCommands::login(const QStringList &arguments)
{
    const QString userName = arguments.at(0);
    const QStringList pieces = userName.split(QStringLiteral(">>"), Qt::SkipEmptyParts);
    const QString user = pieces.value(0).trimmed();
    const QString target = pieces.value(1).trimmed();
    if (user.isEmpty()) {
        return usageError(
            QStringLiteral("The user name is empty; give it as in 'vantro-account login USER'."));
    }

    Account account(nullptr);
    if (account.status() == Account::Connected) {
        return alreadySignedIn(account);
    }

    QString password;
    QString errorString;
    if (!Terminal::readSecret(secretSource(m_settings), QStringLiteral("Password for %1: ").arg(user),
                              QStringLiteral("password"), QStringLiteral("--password-stdin"), &password,
                              &errorString)) {
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

int AccountCommands::loginWithKey(const QStringList &)
{
    const QString &keyFile = m_settings.keyFile;
    QFile file(keyFile);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(Failure,
                    QStringLiteral("Cannot read the key file %1: %2.").arg(keyFile, file.errorString()));
    }
    const QByteArray pem = file.read(MaximumKeyFileBytes);
    file.close();

    Account account(nullptr);
    if (account.status() == Account::Connected) {
        return alreadySignedIn(account);
    }

    vn::crypto::PrivateKey key(pem);
    if (!key.isValid() && pem.contains("ENCRYPTED")) {
        QString passphrase;
        QString errorString;
        if (!Terminal::readSecret(secretSource(m_settings),
                                  QStringLiteral("Passphrase for %1: ").arg(keyFile),
                                  QStringLiteral("passphrase"), QStringLiteral("--passphrase-stdin"),
                                  &passphrase, &errorString)) {
            return usageError(errorString);
        }
        key = vn::crypto::PrivateKey(pem, passphrase);
        if (!key.isValid()) {
            return fail(Failure, QStringLiteral("The key in %1 does not open with this passphrase; check it "
                                                "and try again.")
                                     .arg(keyFile));
        }
    }
    if (!key.isValid()) {
        return fail(Failure,
                    QStringLiteral("%1 holds no private key in PEM form (PKCS#8 or RSA).").arg(keyFile));
    }

    vn::account::ChallengeResponseAuthenticator authenticator;
    authenticator.setPrivateKey(key);
    const QString refusal = QStringLiteral("The service refused the sign-in with the key in %1: it does not "
                                           "know this key, or the key could not answer its challenge; ask "
                                           "the service's operator to register the key.")
                                .arg(keyFile);
    return signIn(account, authenticator, QStringLiteral("with the key in %1").arg(keyFile),
                  QStringLiteral("the device key"), refusal);
}

int AccountCommands::alreadySignedIn(Account &account)
{
    const vn::account::Consumer *consumer = account.consumer();
    return fail(Failure, QStringLiteral("Already signed in%1; sign out first with 'vantro-account logout'.")
                             .arg(consumer ? QStringLiteral(" as ") + consumer->email() : QString()));
}

int AccountCommands::signIn(Account &account, vn::account::AbstractAuthenticator &authenticator,
                            const QString &activity, const QString &signedInAs, const QString &refusal)
{
    const QString service = serviceName(account);
    authenticator.setPersistent(m_settings.persistent);
    Account::Error error = Account::NoError;
    QObject context;
    QObject::connect(&account, &Account::error, &context,
                     [&error](Account::Error reported) { error = reported; });
    account.login(&authenticator);
    Progress::waitUntil(QStringLiteral("Signing in to %1 %2").arg(service, activity),
                        [&account] { return account.status() != Account::Connecting; });

    if (account.status() != Account::Connected) {
        return signInFailed(account, error, refusal);
    }

    // The time it took to type the password is not the service's: its wait starts now.
    m_deadline = QDeadlineTimer(m_settings.waitMilliseconds);
    waitForAccountData(account);
    const vn::account::Consumer *consumer = account.consumer();
    print(AccountReport::status(account),
          QStringLiteral("Signed in to %1 as %2.\n")
              .arg(service, consumer ? QStringLiteral("%1 <%2>").arg(consumer->name(), consumer->email())
                                     : signedInAs));
    if (m_settings.persistent) {
        return Success;
    }
    // A one-shot session: end it now, so that neither the service nor the profile keeps it.
    return signOut(account, QStringLiteral("Signing out again (--no-persist)"),
                   m_settings.json ? QString()
                                   : QStringLiteral("Signed out again: --no-persist keeps nothing.\n"));
}

int AccountCommands::signOut(Account &account, const QString &activity, const QString &done)
{
    Account::Error error = Account::NoError;
    QObject context;
    QObject::connect(&account, &Account::error, &context,
                     [&error](Account::Error reported) { error = reported; });
    account.logout();
    Progress::waitUntil(activity, [&account] { return account.status() == Account::Disconnected; });
    if (error != Account::NoError) {
        return logoutFailed(account, error);
    }
    Terminal::printOut(done);
    return Success;
}

int AccountCommands::logout(const QStringList &)
{
    Account account(nullptr);
    if (account.status() != Account::Connected) {
        return fail(NotSignedIn, QStringLiteral("Not signed in, so there is nothing to sign out from."));
    }
    return signOut(account, QStringLiteral("Signing out of %1").arg(serviceName(account)),
                   QStringLiteral("Signed out.\n"));
}

int AccountCommands::status(const QStringList &)
{
    Account account(nullptr);
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check == Check::Online) {
        waitForAccountData(account);
    }
    // The report is the answer even when the check failed: offline or signed out is a status too.
    const QJsonObject report = AccountReport::status(account);
    print(report, AccountReport::statusText(report));
    return checkFailed(account, check, responseCode);
}

bool AccountCommands::openOnline(Account &account, int *exitCode, bool withData)
{
    int responseCode = 0;
    const Check check = checkLogin(account, &responseCode);
    if (check != Check::Online) {
        *exitCode = checkFailed(account, check, responseCode);
        return false;
    }
    if (withData) {
        waitForAccountData(account);
    }
    return true;
}

int AccountCommands::printList(QJsonArray (*report)(Account &), QString (*text)(const QJsonArray &))
{
    Account account(nullptr);
    int exitCode = Success;
    if (!openOnline(account, &exitCode)) {
        return exitCode;
    }
    const QJsonArray list = report(account);
    print(list, text(list));
    return Success;
}

int AccountCommands::resources(const QStringList &)
{
    return printList(AccountReport::resources, AccountReport::resourcesText);
}

int AccountCommands::services(const QStringList &)
{
    return printList(AccountReport::services, AccountReport::servicesText);
}

int AccountCommands::getFromService(const QStringList &arguments)
{
    const QString &name = arguments.at(0);
    Account account(nullptr);
    int exitCode = Success;
    if (!openOnline(account, &exitCode)) {
        return exitCode;
    }
    vn::account::Service *service = nullptr;
    for (vn::account::Resource *resource : account.findResources(QStringLiteral("vantro.resource.Service"))) {
        auto *candidate = qobject_cast<vn::account::Service *>(resource);
        if (candidate && candidate->name() == name) {
            service = candidate;
            break;
        }
    }
    if (!service) {
        return fail(Failure, QStringLiteral("The account has no service \"%1\"; list its services with "
                                            "'vantro-account services'.")
                                 .arg(name));
    }

    service->enable();
    // The library retries a refused token on its own schedule; here the wait is bounded.
    m_deadline = QDeadlineTimer(m_settings.waitMilliseconds);
    if (!Progress::waitUntil(
            QStringLiteral("Fetching a token for %1 from %2").arg(name, serviceName(account)),
            [service] { return service->status() == vn::account::Service::Ready; }, m_deadline)) {
        return fail(Failure, QStringLiteral("The account service at %1 issued no token for %2 within %3 s; "
                                            "'--verbose' shows its answer, '--wait' allows longer.")
                                 .arg(serviceName(account), name)
                                 .arg(m_settings.waitMilliseconds / 1000.0));
    }

    vn::GetRequest *request = service->getRequest(QUrl(arguments.at(1), QUrl::TolerantMode));
    const QString target = request->url().adjusted(QUrl::RemoveUserInfo | QUrl::RemoveQuery).toString();
    const Progress::Reply reply = Progress::runRequest(request, QStringLiteral("Fetching %1").arg(target));
    if (reply.responseCode == 0) {
        return fail(Failure, QStringLiteral("The service %1 at %2 could not be reached; check that it is "
                                            "running.")
                                 .arg(name, target));
    }
    Terminal::printOut(QString::fromUtf8(reply.body) +
                       (reply.body.endsWith('\n') || reply.body.isEmpty() ? "" : "\n"));
    if (reply.responseCode < 200 || reply.responseCode > 299) {
        return fail(Failure, QStringLiteral("The service %1 answered HTTP %2 for %3.")
                                 .arg(name)
                                 .arg(reply.responseCode)
                                 .arg(target));
    }
    return Success;
}

int AccountCommands::logins(const QStringList &)
{
    Account account(nullptr);
    int exitCode = Success;
    if (!openOnline(account, &exitCode, false)) {
        return exitCode;
    }
    const Progress::Reply reply =
        Progress::runRequest(account.getRequest(QUrl(QStringLiteral("logins?format=all_fields"))),
                             QStringLiteral("Listing the logins at %1").arg(serviceName(account)));
    if (reply.responseCode != 200) {
        return requestFailed(account, reply.responseCode, QStringLiteral("login list"));
    }
    const vn::account::Session *session = account.session();
    const QJsonArray list = AccountReport::logins(QJsonDocument::fromJson(reply.body).array(),
                                                  session ? session->identifier() : QString());
    print(list, AccountReport::loginsText(list));
    return Success;
}

int AccountCommands::endLogin(const QStringList &arguments)
{
    const QString &loginId = arguments.at(0);
    if (!isPlainLoginId(loginId)) {
        return usageError(
            QStringLiteral("\"%1\" is not a login id; list them with 'vantro-account logins'.").arg(loginId));
    }
    Account account(nullptr);
    int exitCode = Success;
    if (!openOnline(account, &exitCode, false)) {
        return exitCode;
    }
    const vn::account::Session *session = account.session();
    if (session && session->identifier() == loginId) {
        return fail(Failure,
                    QStringLiteral("Login %1 is this client's own; end it with 'vantro-account logout'.")
                        .arg(loginId));
    }

    const Progress::Reply reply = Progress::runRequest(
        account.deleteRequest(QUrl(QStringLiteral("logins/") + loginId, QUrl::TolerantMode)),
        QStringLiteral("Ending login %1").arg(loginId));
    if (reply.responseCode == 404) {
        return fail(Failure,
                    QStringLiteral("The account has no login %1 at the service; list its logins with "
                                   "'vantro-account logins'.")
                        .arg(loginId));
    }
    // Only 200 means the service ended it.
    if (reply.responseCode != 200) {
        return requestFailed(account, reply.responseCode, QStringLiteral("end of login %1").arg(loginId));
    }
    Terminal::printOut(QStringLiteral("Ended login %1.\n").arg(loginId));
    return Success;
}

AccountCommands::Check AccountCommands::checkLogin(Account &account, int *responseCode)
{
    if (account.status() != Account::Connected) {
        return Check::NotSignedIn;
    }
    // The library checks a restored login at once: it turns online, or signs out when the service
    // has ended the login, or reports why the check failed and leaves the account offline.
    int failedCheck = -1;
    QObject context;
    QObject::connect(&account, &Account::onlineCheckFailed, &context,
                     [&failedCheck](int reported) { failedCheck = reported; });
    Progress::waitUntil(
        QStringLiteral("Checking the login with %1").arg(serviceName(account)),
        [&] { return account.isOnline() || account.status() != Account::Connected || failedCheck >= 0; },
        m_deadline);

    *responseCode = failedCheck;
    if (account.isOnline()) {
        return Check::Online;
    }
    if (account.status() != Account::Connected) {
        return Check::Revoked;
    }
    return failedCheck >= 0 ? Check::Failed : Check::TimedOut;
}

void AccountCommands::waitForAccountData(Account &account)
{
    const auto complete = [&account] {
        return account.consumer() && account.identity() && !account.resourceList().isEmpty();
    };
    if (Progress::waitUntil(QStringLiteral("Fetching the account's data from %1").arg(serviceName(account)),
                            complete, m_deadline)) {
        return;
    }
    QStringList missing;
    if (!account.consumer()) {
        missing.append(QStringLiteral("consumer"));
    }
    if (!account.identity()) {
        missing.append(QStringLiteral("identity chain"));
    }
    if (account.resourceList().isEmpty()) {
        missing.append(QStringLiteral("resources"));
    }
    Terminal::printError(
        QStringLiteral("Warning: the service sent no %1 within %2 s; what follows is what the "
                       "profile holds (allow longer with --wait).\n")
            .arg(missing.join(QStringLiteral(", ")))
            .arg(m_settings.waitMilliseconds / 1000.0));
}

int AccountCommands::checkFailed(Account &account, Check check, int responseCode)
{
    switch (check) {
    case Check::Online:
        return Success;
    case Check::NotSignedIn:
        return fail(NotSignedIn, QStringLiteral("Not signed in; sign in with 'vantro-account login USER'."));
    case Check::Revoked:
        return requestFailed(account, 401, QStringLiteral("login check"));
    case Check::Failed:
        return requestFailed(account, responseCode, QStringLiteral("login check"));
    case Check::TimedOut:
        break;
    }
    return fail(Failure,
                QStringLiteral("The account service at %1 did not confirm the login within %2 s; try "
                               "again, or allow longer with --wait.")
                    .arg(serviceName(account))
                    .arg(m_settings.waitMilliseconds / 1000.0));
}

void AccountCommands::print(const QJsonValue &report, const QString &text)
{
    if (!m_settings.json) {
        Terminal::printOut(text);
        return;
    }
    const QJsonDocument document =
        report.isArray() ? QJsonDocument(report.toArray()) : QJsonDocument(report.toObject());
    Terminal::printOut(QString::fromUtf8(document.toJson(QJsonDocument::Indented)));
}

} // namespace vn::tools

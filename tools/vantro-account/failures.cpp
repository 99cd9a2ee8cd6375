#include "failures.h"

#include "terminal.h"

namespace vn::tools {

using vn::account::Account;

int fail(int exitCode, const QString &message)
{
    Terminal::printError(message + QLatin1Char('\n'));
    return exitCode;
}

int usageError(const QString &message)
{
    return fail(UsageError, message + QStringLiteral(" See 'vantro-account --help'."));
}

QString serviceName(const Account &account)
{
    // User information in the address would be a credential; messages name the service without it.
    return account.serviceUrl().toString(QUrl::RemoveUserInfo);
}

int requestFailed(const Account &account, int responseCode, const QString &what)
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

int signInFailed(const Account &account, Account::Error error, const QString &refusal)
{
    switch (error) {
    case Account::AuthenticationFailed:
        return fail(Failure, refusal);
    case Account::ServiceUnavailable:
        return requestFailed(account, 0, QStringLiteral("sign-in"));
    case Account::ServiceFailure:
        return fail(Failure, QStringLiteral("The account service at %1 failed with a server error while "
                                            "signing in; try again later, or ask its operator if it "
                                            "persists.")
                                 .arg(serviceName(account)));
    case Account::InvalidLoginData:
        return usageError(
            QStringLiteral("The user name is empty; give it as in 'vantro-account login USER'."));
    case Account::AlreadyLoggedIn:
    case Account::AlreadyBusy:
        return fail(Failure, QStringLiteral("Another sign-in or sign-out of this profile is under way; wait "
                                            "for it to end and try again."));
    default:
        return fail(
            Failure,
            QStringLiteral("The sign-in to %1 did not complete; try again.").arg(serviceName(account)));
    }
}

int logoutFailed(const Account &account, Account::Error error)
{
    return fail(Failure,
                QStringLiteral("Signed out here, but the account service at %1 %2, so the login stays "
                               "valid there until it expires; end it from another sign-in with "
                               "'vantro-account logins end ID'.")
                    .arg(serviceName(account), error == Account::ServiceUnavailable
                                                   ? QStringLiteral("could not be reached")
                                                   : QStringLiteral("failed to end it")));
}

} // namespace vn::tools

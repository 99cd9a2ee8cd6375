#pragma once

#include <VantroAccount/abstractauthenticator.h>
#include <VantroAccount/account.h>

#include <QDeadlineTimer>
#include <QJsonValue>
#include <QString>
#include <QStringList>

namespace vn::tools {

/// The commands of vantro-account: login, logout, status, resources, services, services get, logins
/// and logins end.
///
/// Every command works on the process's one account, restored by the library from the profile, and
/// talks to the service only through the account and its request helpers. Results go to standard
/// output (as text, or as JSON with --json); progress and the one-sentence reason for a failure go
/// to standard error. Nothing it prints ever holds a password, a token or the client key.
class AccountTool
{
public:
    enum ExitCode {
        Success = 0,
        Failure = 1, ///< refused sign-in, unreachable or failing service, ...
        UsageError = 2,
        NotSignedIn = 3, ///< no login in the profile, or the service has ended it
    };

    /// Runs the command line @p arguments (the program name first) and returns the exit code. The
    /// application object must exist; the account is made only after the options that decide its
    /// profile have been applied.
    int run(const QStringList &arguments);

private:
    /// How a saved login fared when it was checked with the service.
    enum class Check { Online, NotSignedIn, Revoked, Unreachable, ServiceError, TimedOut };

    int login(const QString &userName);
    int loginWithKey(const QString &keyFile);
    int alreadySignedIn(vn::account::Account &account);
    /// Signs in with @p authenticator and reports the result; @p refusal is the message for a
    /// refused sign-in.
    int signIn(vn::account::Account &account, vn::account::AbstractAuthenticator &authenticator,
               const QString &activity, const QString &signedInAs, const QString &refusal);
    int logout();
    int status();
    int resources();
    int services();
    int getFromService(const QString &name, const QString &path);
    int logins();
    int endLogin(const QString &loginId);

    /// Waits for the library's check of a restored login and, when that does not bring the account
    /// online, asks the service itself to learn why. @p responseCode gets the service's answer.
    Check checkLogin(vn::account::Account &account, int *responseCode);
    /// Waits until consumer, identity and resources are present or the deadline passes; warns on
    /// standard error when something is still missing.
    void waitForAccountData(vn::account::Account &account);
    /// The message and exit code of a check that did not end online.
    int checkFailed(vn::account::Account &account, Check check, int responseCode);
    /// The message and exit code for an answer of the service other than success.
    int requestFailed(vn::account::Account &account, int responseCode, const QString &what);

    /// The library has signed out locally; the service did not end the login with it.
    int logoutFailed(vn::account::Account &account, vn::account::Account::Error error);
    int fail(int exitCode, const QString &message);
    int usageError(const QString &message);
    void printJson(const QJsonValue &value);

    QDeadlineTimer m_deadline;
    int m_waitMilliseconds = 0;
    bool m_json = false;
    bool m_passwordFromStandardInput = false;
    bool m_passphraseFromStandardInput = false;
    bool m_persistent = true;
};

} // namespace vn::tools

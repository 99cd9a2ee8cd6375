#pragma once

#include "failures.h"

#include <VantroAccount/abstractauthenticator.h>
#include <VantroAccount/account.h>

#include <QByteArray>
#include <QDeadlineTimer>
#include <QJsonArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>

namespace vn {
class Request;
}

namespace vn::tools {

/// What the command line decided beyond the command and its arguments.
struct CommandSettings
{
    int waitMilliseconds = 5000;
    bool json = false;
    bool persistent = true;
    /// The password (login USER) or the key's passphrase (login --key) comes from standard input.
    bool secretFromStandardInput = false;
    QString keyFile;
};

/// The commands of vantro-account: login, logout, status, resources, services, services get, logins
/// and logins end.
///
/// Every command works on the process's one account, restored by the library from the profile, and
/// talks to the service only through the account and its request helpers. Results go to standard
/// output (as text, or as JSON with --json); progress and the one-sentence reason for a failure go
/// to standard error. Nothing it prints ever holds a password, a token or the client key.
///
/// Each command takes the arguments that follow its name, already counted by the command line, and
/// returns the program's exit code.
class AccountCommands
{
public:
    explicit AccountCommands(const CommandSettings &settings);

    int login(const QStringList &arguments);
    int loginWithKey(const QStringList &arguments);
    int logout(const QStringList &arguments);
    int status(const QStringList &arguments);
    int resources(const QStringList &arguments);
    int services(const QStringList &arguments);
    int getFromService(const QStringList &arguments);
    int logins(const QStringList &arguments);
    int endLogin(const QStringList &arguments);

private:
    /// How a saved login fared when the library checked it with the service.
    enum class Check { Online, NotSignedIn, Revoked, Failed, TimedOut };

    int alreadySignedIn(vn::account::Account &account);
    /// Signs in with @p authenticator and reports the result; @p refusal is the message for a
    /// refused sign-in.
    int signIn(vn::account::Account &account, vn::account::AbstractAuthenticator &authenticator,
               const QString &activity, const QString &signedInAs, const QString &refusal);
    /// Ends the login and waits for the library to have cleared the profile.
    int signOut(vn::account::Account &account, const QString &activity, const QString &done);

    /// Waits for the library's check of a restored login. @p responseCode gets the service's answer
    /// when the check failed.
    Check checkLogin(vn::account::Account &account, int *responseCode);
    /// Waits until consumer, identity and resources are present or the deadline passes; warns on
    /// standard error when something is still missing.
    void waitForAccountData(vn::account::Account &account);

    /// Checks the restored login and, with @p withData, waits for the account's data: true when it
    /// is online, else false with the exit code of the failed check in @p exitCode.
    bool openOnline(vn::account::Account &account, int *exitCode, bool withData = true);
    /// Prints one of the account's lists (resources, services) once it is online.
    int printList(QJsonArray (*report)(vn::account::Account &), QString (*text)(const QJsonArray &));
    /// The message and exit code of a check that did not end online.
    int checkFailed(vn::account::Account &account, Check check, int responseCode);
    /// Prints @p report as JSON with --json, else @p text.
    void print(const QJsonValue &report, const QString &text);

    const CommandSettings m_settings;
    QDeadlineTimer m_deadline;
};

} // namespace vn::tools

#pragma once

#include <VantroAccount/account.h>

#include <QString>

namespace vn::tools {

enum ExitCode {
    Success = 0,
    Failure = 1, ///< refused sign-in, unreachable or failing service, ...
    UsageError = 2,
    NotSignedIn = 3, ///< no login in the profile, or the service has ended it
};

// What vantro-account says when a command fails: one sentence on standard error that says what
// happened and what to do, and the exit code that goes with it. Each function writes its sentence
// and returns the exit code, so that a command ends with `return requestFailed(...);`.

int fail(int exitCode, const QString &message);
/// @p message, and where to read how the program is called.
int usageError(const QString &message);

/// The account service's address as messages name it.
QString serviceName(const vn::account::Account &account);

/// The account service answered @p what (as in "the login list") with @p responseCode, 0 when it
/// could not be reached.
int requestFailed(const vn::account::Account &account, int responseCode, const QString &what);
/// The sign-in ended with @p error; @p refusal is the message for a refused one.
int signInFailed(const vn::account::Account &account, vn::account::Account::Error error,
                 const QString &refusal);
/// The library has signed out locally; the service did not end the login with it.
int logoutFailed(const vn::account::Account &account, vn::account::Account::Error error);

} // namespace vn::tools

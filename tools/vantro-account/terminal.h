#pragma once

#include <QString>

namespace vn::tools {

/// The program's side of the terminal: the prompt for a secret and what it prints.
///
/// Standard output carries results only; progress, warnings and errors go to standard error, so that
/// a script can read results while a person watches the progress.
class Terminal
{
public:
    /// Where a secret comes from.
    enum class SecretSource {
        Terminal,      ///< asked on the controlling terminal (/dev/tty), not echoed
        StandardInput, ///< the first line of standard input, for scripts
    };

    /// Reads a secret (a password, a key's passphrase) after showing @p prompt. The typed characters
    /// are never echoed: echo is switched off on the terminal while it is read, and switched back on
    /// also when the program is interrupted meanwhile. False, with @p errorString set, when there is
    /// no terminal to ask, standard input is empty, or reading fails; the message names the secret as
    /// @p noun and the option that reads it from standard input as @p standardInputOption.
    static bool readSecret(SecretSource source, const QString &prompt, const QString &noun,
                           const QString &standardInputOption, QString *secret, QString *errorString);

    /// Whether standard error is a terminal: progress is then animated in place.
    static bool isErrorTerminal();

    /// Writes @p text to standard output, as UTF-8, and flushes it.
    static void printOut(const QString &text);
    /// Writes @p text to standard error, as UTF-8, and flushes it.
    static void printError(const QString &text);
};

} // namespace vn::tools

#pragma once

#include <QString>

namespace vn::tools {

/// The program's side of the terminal: the password prompt and what it prints.
///
/// Standard output carries results only; progress, warnings and errors go to standard error, so that
/// a script can read results while a person watches the progress.
class Terminal
{
public:
    /// Where a password comes from.
    enum class PasswordSource {
        Terminal,      ///< asked on the controlling terminal (/dev/tty), not echoed
        StandardInput, ///< the first line of standard input, for scripts
    };

    /// Reads a password for @p userName. The typed characters are never echoed: echo is switched off
    /// on the terminal while it is read, and switched back on also when the program is interrupted
    /// meanwhile. False, with @p errorString set, when there is no terminal to ask, standard input is
    /// empty, or reading fails.
    static bool readPassword(PasswordSource source, const QString &userName, QString *password,
                             QString *errorString);

    /// Whether standard error is a terminal: progress is then animated in place.
    static bool isErrorTerminal();

    /// Writes @p text to standard output, as UTF-8, and flushes it.
    static void printOut(const QString &text);
    /// Writes @p text to standard error, as UTF-8, and flushes it.
    static void printError(const QString &text);
};

} // namespace vn::tools

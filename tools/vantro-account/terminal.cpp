#include "terminal.h"

#include <QByteArray>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <iterator>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace vn::tools {

namespace {

// A secret longer than this is not a typing mistake we need to support; stop reading there.
constexpr int MaximumSecretBytes = 4096;

// What the signal handler needs to give the terminal its echo back. Only plain values: the handler
// may run at any moment of the prompt.
int s_terminalDescriptor = -1;
struct termios s_savedMode = {};
volatile std::sig_atomic_t s_echoIsOff = 0;

const int InterruptingSignals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};

extern "C" void restoreEchoAndResignal(int signalNumber)
{
    if (s_echoIsOff) {
        ::tcsetattr(s_terminalDescriptor, TCSAFLUSH, &s_savedMode);
    }
    // Die of the same signal, as the shell expects from an interrupted program.
    ::signal(signalNumber, SIG_DFL);
    ::raise(signalNumber);
}

/// Reads up to the end of the line (or of the input) from @p descriptor, without the line feed and
/// a carriage return before it. False when nothing at all could be read.
bool readLine(int descriptor, QByteArray *line)
{
    bool readAnything = false;
    char byte = 0;
    while (line->size() < MaximumSecretBytes) {
        const ssize_t count = ::read(descriptor, &byte, 1);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            break;
        }
        readAnything = true;
        if (byte == '\n') {
            break;
        }
        line->append(byte);
    }
    if (line->endsWith('\r')) {
        line->chop(1);
    }
    return readAnything;
}

QString takeSecret(QByteArray *bytes)
{
    const QString secret = QString::fromUtf8(*bytes);
    bytes->fill('\0');
    return secret;
}

bool readFromTerminal(const QString &prompt, const QString &noun, const QString &option, QString *secret,
                      QString *errorString)
{
    const int descriptor = ::open("/dev/tty", O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (descriptor < 0) {
        *errorString = QStringLiteral("There is no terminal to ask for the %1 on; give it on standard input "
                                      "with %2.")
                           .arg(noun, option);
        return false;
    }
    struct sigaction previous[std::size(InterruptingSignals)] = {};
    const bool canSwitchEcho = ::tcgetattr(descriptor, &s_savedMode) == 0;
    if (canSwitchEcho) {
        s_terminalDescriptor = descriptor;
        struct sigaction action = {};
        action.sa_handler = restoreEchoAndResignal;
        sigemptyset(&action.sa_mask);
        for (size_t i = 0; i < std::size(InterruptingSignals); ++i) {
            ::sigaction(InterruptingSignals[i], &action, &previous[i]);
        }
        struct termios silent = s_savedMode;
        silent.c_lflag &= ~tcflag_t(ECHO | ECHOE | ECHOK | ECHONL);
        s_echoIsOff = ::tcsetattr(descriptor, TCSAFLUSH, &silent) == 0;
    }
    // Only now the prompt: switching echo off drops what was typed ahead, and what is typed after
    // the prompt must be neither dropped nor echoed.
    const QByteArray promptBytes = prompt.toUtf8();
    if (::write(descriptor, promptBytes.constData(), size_t(promptBytes.size())) < 0) {
        // Nothing to do: the prompt is a courtesy, the read below still works.
    }

    QByteArray line;
    const bool read = readLine(descriptor, &line);

    if (canSwitchEcho) {
        if (s_echoIsOff) {
            ::tcsetattr(descriptor, TCSAFLUSH, &s_savedMode);
        }
        s_echoIsOff = 0;
        for (size_t i = 0; i < std::size(InterruptingSignals); ++i) {
            ::sigaction(InterruptingSignals[i], &previous[i], nullptr);
        }
        s_terminalDescriptor = -1;
    }
    // The line feed that ended the secret was not echoed either.
    if (::write(descriptor, "\n", 1) < 0) {
        // As above: cosmetic only.
    }
    ::close(descriptor);

    if (!read) {
        *errorString =
            QStringLiteral("No %1 was typed; run the command again and type it at the prompt.").arg(noun);
        return false;
    }
    *secret = takeSecret(&line);
    return true;
}

bool readFromStandardInput(const QString &noun, const QString &option, QString *secret, QString *errorString)
{
    QByteArray line;
    if (!readLine(STDIN_FILENO, &line)) {
        *errorString = QStringLiteral("Standard input is empty; pipe the %1 into the command when using %2.")
                           .arg(noun, option);
        return false;
    }
    *secret = takeSecret(&line);
    return true;
}

void printTo(std::FILE *stream, const QString &text)
{
    const QByteArray bytes = text.toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stream);
    std::fflush(stream);
}

} // namespace

bool Terminal::readSecret(SecretSource source, const QString &prompt, const QString &noun,
                          const QString &standardInputOption, QString *secret, QString *errorString)
{
    return source == SecretSource::StandardInput
               ? readFromStandardInput(noun, standardInputOption, secret, errorString)
               : readFromTerminal(prompt, noun, standardInputOption, secret, errorString);
}

bool Terminal::isErrorTerminal()
{
    return ::isatty(STDERR_FILENO) == 1;
}

void Terminal::printOut(const QString &text)
{
    printTo(stdout, text);
}

void Terminal::printError(const QString &text)
{
    printTo(stderr, text);
}

} // namespace vn::tools

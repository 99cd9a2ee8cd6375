#pragma once

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <cstdlib>

namespace vn::fuzz {

// Fuzzing feeds millions of rejected inputs, each of which the library logs: the log is silenced,
// except that a fatal message still ends the process, as it must.
inline void quietMessages(QtMsgType type, const QMessageLogContext &, const QString &message)
{
    if (type == QtFatalMsg) {
        std::fprintf(stderr, "fatal: %s\n", qUtf8Printable(message));
        std::abort();
    }
}

/// The Qt application every target runs in, made on the first input and kept until exit.
inline void setUp()
{
    static int argc = 1;
    static char name[] = "fuzz";
    static char *argv[] = {name, nullptr};
    static const bool quiet = (qInstallMessageHandler(quietMessages), true);
    static QCoreApplication application(argc, argv);
    Q_UNUSED(quiet)
}

} // namespace vn::fuzz

/// Ends the run when a property does not hold; the fuzzer then keeps the input that broke it. Only
/// the condition's text is printed, never the input, which may hold a key.
#define FUZZ_CHECK(condition)                                                                                \
    do {                                                                                                     \
        if (!(condition)) {                                                                                  \
            std::fprintf(stderr, "%s:%d: property failed: %s\n", __FILE__, __LINE__, #condition);            \
            std::abort();                                                                                    \
        }                                                                                                    \
    } while (false)

#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

class QCommandLineParser;

namespace vn::tools {

/// The sub-commands of vantro-sign: keygen, sign, verify, canonicalize and fingerprint.
///
/// Results go to standard output, one-line reasons for a failure to standard error, prefixed with
/// the program name. Nothing it prints ever contains key material.
class SignTool
{
public:
    enum ExitCode {
        Success = 0,
        Failure = 1, ///< verification failed, or unusable input, key or file
        UsageError = 2,
    };

    /// Runs the command line @p arguments (the program name first) and returns the exit code.
    int run(const QStringList &arguments);

private:
    int keygen(const QCommandLineParser &parser);
    int sign(const QCommandLineParser &parser);
    int verify(const QCommandLineParser &parser);
    int canonicalize(const QCommandLineParser &parser);
    int fingerprint(const QCommandLineParser &parser);

    /// Reads the passphrase from the environment variable named by --passphrase-env, if given.
    bool passphrase(const QCommandLineParser &parser, QString *passphrase);

    int fail(const QString &reason);
    int usageError(const QString &command, const QString &reason);
    bool writeOutput(const QByteArray &bytes);
};

} // namespace vn::tools

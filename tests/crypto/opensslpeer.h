#pragma once

#include <QByteArray>
#include <QCryptographicHash>
#include <QString>
#include <QStringList>

/// The openssl command-line tool, run through QProcess: an implementation of the same
/// algorithms that shares no code with ours.
class OpenSslPeer
{
public:
    static bool isAvailable();

    /// Runs openssl with @p arguments, @p input on its standard input. Returns standard output;
    /// @p ok tells whether it exited with 0.
    static QByteArray run(const QStringList &arguments, const QByteArray &input = QByteArray(),
                          bool *ok = nullptr);

    /// The hash of the DER SubjectPublicKeyInfo of the key in @p pemPath (private or public), as
    /// `openssl pkey -pubout -outform der | openssl dgst -binary` computes it.
    static QByteArray fingerPrint(const QString &pemPath, bool isPublic,
                                  QCryptographicHash::Algorithm algorithm);

    /// The -pkeyopt / -sigopt options of our padding schemes.
    static QStringList oaepOptions();
    static QStringList pssOptions();
};

/// Writes @p data to @p path, replacing it; false on failure.
bool writeFile(const QString &path, const QByteArray &data);

#include "opensslpeer.h"

#include <QFile>
#include <QProcess>
#include <QStandardPaths>

bool OpenSslPeer::isAvailable()
{
    return !QStandardPaths::findExecutable(QStringLiteral("openssl")).isEmpty();
}

QByteArray OpenSslPeer::run(const QStringList &arguments, const QByteArray &input, bool *ok)
{
    QProcess process;
    process.start(QStringLiteral("openssl"), arguments);
    bool finished = process.waitForStarted();
    if (finished) {
        process.write(input);
        process.closeWriteChannel();
        finished = process.waitForFinished(60000);
    }
    const bool success = finished && process.exitStatus() == QProcess::NormalExit && process.exitCode() == 0;
    if (!success)
        qWarning("openssl %s failed: %s", qPrintable(arguments.join(QLatin1Char(' '))),
                 process.readAllStandardError().constData());
    if (ok)
        *ok = success;
    return process.readAllStandardOutput();
}

QByteArray OpenSslPeer::fingerPrint(const QString &pemPath, bool isPublic,
                                    QCryptographicHash::Algorithm algorithm)
{
    QStringList pkey{QStringLiteral("pkey"), QStringLiteral("-in"), pemPath};
    if (isPublic)
        pkey << QStringLiteral("-pubin");
    pkey << QStringLiteral("-pubout") << QStringLiteral("-outform") << QStringLiteral("der");
    bool ok = false;
    const QByteArray der = run(pkey, {}, &ok);
    if (!ok)
        return {};
    const QString digest =
        algorithm == QCryptographicHash::Sha1 ? QStringLiteral("-sha1") : QStringLiteral("-sha256");
    return run({QStringLiteral("dgst"), digest, QStringLiteral("-binary")}, der);
}

QStringList OpenSslPeer::oaepOptions()
{
    return {QStringLiteral("-pkeyopt"), QStringLiteral("rsa_padding_mode:oaep"),
            QStringLiteral("-pkeyopt"), QStringLiteral("rsa_oaep_md:sha256"),
            QStringLiteral("-pkeyopt"), QStringLiteral("rsa_mgf1_md:sha256")};
}

QStringList OpenSslPeer::pssOptions()
{
    return {QStringLiteral("-sha256"),
            QStringLiteral("-sigopt"),
            QStringLiteral("rsa_padding_mode:pss"),
            QStringLiteral("-sigopt"),
            QStringLiteral("rsa_pss_saltlen:32"),
            QStringLiteral("-sigopt"),
            QStringLiteral("rsa_mgf1_md:sha256")};
}

bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly | QIODevice::Truncate) && file.write(data) == data.size();
}

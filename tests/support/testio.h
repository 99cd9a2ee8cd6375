#pragma once

#include <QFile>
#include <QProcess>

#include <sys/stat.h>

namespace vn::test {

/// The file's bytes; empty when it cannot be read.
inline QByteArray readFile(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

/// Replaces the file with @p data, which must not be empty: an empty result of a step before is a failure.
inline bool writeFile(const QString &path, const QByteArray &data)
{
    QFile file(path);
    return !data.isEmpty() && file.open(QIODevice::WriteOnly) && file.write(data) == data.size();
}

/// The permission bits in octal, as ls and chmod show them ("600"), or "missing".
inline QString fileMode(const QString &path)
{
    struct stat info;
    return ::stat(QFile::encodeName(path).constData(), &info) == 0 ? QString::number(info.st_mode & 07777, 8)
                                                                   : QStringLiteral("missing");
}

struct ProcessResult
{
    int exitCode = -1; // -1 when the program crashed or did not end in time
    QByteArray out;
    QByteArray err;
};

/// Runs @p program to its end with @p input on its standard input.
inline ProcessResult runProcess(const QString &program, const QStringList &arguments,
                                const QByteArray &input = QByteArray())
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    const bool finished = process.waitForFinished(120000) && process.exitStatus() == QProcess::NormalExit;
    return {finished ? process.exitCode() : -1, process.readAllStandardOutput(),
            process.readAllStandardError()};
}

} // namespace vn::test

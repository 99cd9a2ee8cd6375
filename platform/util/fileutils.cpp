#include "fileutils.h"

#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace vn::util {

namespace {

bool syncPath(const QByteArray &path, int flags)
{
    int descriptor;
    do {
        descriptor = ::open(path.constData(), flags | O_CLOEXEC);
    } while (descriptor < 0 && errno == EINTR);
    if (descriptor < 0) {
        return false;
    }
    int result;
    do {
        result = ::fsync(descriptor);
    } while (result != 0 && errno == EINTR);
    ::close(descriptor);
    return result == 0;
}

} // namespace

bool FileUtils::syncFile(const QString &path)
{
    const QFileInfo info(path);
    if (path.isEmpty() || !info.isFile()) {
        return false;
    }
    // The rename that QSaveFile commits with lives in the folder's entry table: flush that too.
    const bool fileSynced = syncPath(QFile::encodeName(info.absoluteFilePath()), O_RDONLY);
    const bool folderSynced = syncPath(QFile::encodeName(info.absolutePath()), O_RDONLY | O_DIRECTORY);
    return fileSynced && folderSynced;
}

} // namespace vn::util

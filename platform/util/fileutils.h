#pragma once

#include <VantroUtil/vantroutil_export.h>

#include <QString>

namespace vn::util {

/// File-system helpers that the platform layer and the account library share.
class VANTROUTIL_EXPORT FileUtils
{
public:
    FileUtils() = delete;

    /// Flushes the file at @p path and the folder that holds it to stable storage, so that a file
    /// just renamed into place survives a crash. False when the file is missing or a flush failed.
    static bool syncFile(const QString &path);
};

} // namespace vn::util

#pragma once

#include <Vantro/vantro_export.h>

#include <QDir>

namespace vn {

/// Where the platform keeps per-user files.
class VANTRO_EXPORT Locations
{
public:
    Locations() = delete;

    /// The folder below which account profiles live: the per-user application data folder plus
    /// "profiles", or the folder that the environment variable VANTRO_PROFILE_LOCATION names, so
    /// that tests and tools never touch a real profile. The folder is not created here.
    static QDir profileLocation();
};

} // namespace vn

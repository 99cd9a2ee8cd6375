#include "locations.h"

#include <QStandardPaths>

namespace vn {

QDir Locations::profileLocation()
{
    const QString overridden = qEnvironmentVariable("VANTRO_PROFILE_LOCATION");
    if (!overridden.isEmpty()) {
        return QDir(overridden);
    }
    return QDir(QStandardPaths::writableLocation(QStandardPaths::AppDataLocation) +
                QStringLiteral("/profiles"));
}

} // namespace vn

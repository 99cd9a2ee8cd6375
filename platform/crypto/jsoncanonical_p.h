#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QLatin1String>

namespace vn::crypto {

/// The canonical form of @p object as if it had no member @p skippedKey, without copying the
/// object to remove it. Empty when the object holds a value that JSON cannot carry.
QByteArray canonicalObjectWithout(const QJsonObject &object, QLatin1String skippedKey);

} // namespace vn::crypto

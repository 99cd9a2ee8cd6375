#pragma once

#include <VantroCrypto/vantrocrypto_export.h>

#include <QByteArray>
#include <QJsonValue>
#include <QString>

namespace vn::crypto {

/// The canonical form of JSON values of RFC 8785 (JSON Canonicalization Scheme): members sorted by
/// their UTF-16 code units, no white space, the shortest escaping of strings, and numbers written
/// as ECMAScript's Number.prototype.toString writes an IEEE-754 double.
class VANTROCRYPTO_EXPORT JsonCanonical
{
public:
    JsonCanonical() = delete;

    /// The canonical UTF-8 bytes of @p value. Empty when the value holds something that has no
    /// canonical form: NaN or an infinity, a lone UTF-16 surrogate, or an undefined value.
    static QByteArray serialize(const QJsonValue &value);

    /// @p number as ECMAScript writes it ("1e+21", "5e-324", "0" for negative zero).
    /// Empty for NaN and infinities, which JSON cannot carry.
    static QByteArray formatNumber(double number);
};

} // namespace vn::crypto

#pragma once

#include <VantroCrypto/vantrocrypto_export.h>

#include <QByteArray>
#include <QJsonObject>

namespace vn::crypto {

class PrivateKey;
class PublicKey;

/// Signed JSON objects: the object carries a "signature" member holding, in standard base64 with
/// padding, an RSASSA-PSS-SHA-256 signature (MGF1-SHA-256, 32-byte salt) over the canonical form
/// (JsonCanonical) of the object without its "signature" member.
class VANTROCRYPTO_EXPORT JsonSignature
{
public:
    JsonSignature() = delete;

    /// The bytes that are signed: the canonical form of @p object without "signature".
    static QByteArray signedBytes(const QJsonObject &object);

    /// True when the object's "signature" verifies against @p key.
    static bool verify(const QJsonObject &object, const PublicKey &key);

    /// The base64 signature of @p object (its "signature" member ignored); empty on failure.
    static QByteArray signature(const QJsonObject &object, const PrivateKey &key);

    /// @p object with its "signature" member added or replaced; an empty object on failure.
    static QJsonObject sign(const QJsonObject &object, const PrivateKey &key);
};

} // namespace vn::crypto

#include "jsonsignature.h"

#include "jsoncanonical_p.h"
#include "privatekey.h"
#include "publickey.h"

#include <QJsonValue>

namespace vn::crypto {

namespace {
const QLatin1String SignatureKey("signature");
}

QByteArray JsonSignature::signedBytes(const QJsonObject &object)
{
    return canonicalObjectWithout(object, SignatureKey);
}

bool JsonSignature::verify(const QJsonObject &object, const PublicKey &key)
{
    const QJsonValue signature = object.value(SignatureKey);
    if (!signature.isString()) {
        return false;
    }
    const QByteArray::FromBase64Result decoded =
        QByteArray::fromBase64Encoding(signature.toString().toLatin1(),
                                       QByteArray::Base64Encoding | QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.isEmpty()) {
        return false;
    }
    const QByteArray bytes = signedBytes(object);
    if (bytes.isEmpty()) {
        return false;
    }
    return key.verify(bytes, decoded.decoded);
}

QByteArray JsonSignature::signature(const QJsonObject &object, const PrivateKey &key)
{
    const QByteArray bytes = signedBytes(object);
    if (bytes.isEmpty()) {
        return {};
    }
    return key.sign(bytes).toBase64();
}

QJsonObject JsonSignature::sign(const QJsonObject &object, const PrivateKey &key)
{
    const QByteArray encoded = signature(object, key);
    if (encoded.isEmpty()) {
        return {};
    }
    QJsonObject signedObject = object;
    signedObject.insert(SignatureKey, QString::fromLatin1(encoded));
    return signedObject;
}

} // namespace vn::crypto

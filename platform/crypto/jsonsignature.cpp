#include "jsonsignature.h"

#include "jsoncanonical_p.h"
#include "privatekey.h"
#include "publickey.h"

#include <QJsonValue>

#include <array>

namespace vn::crypto {

namespace {
const QLatin1String SignatureKey("signature");

// The signature's base64 text decoded in one pass over the string's own characters. A restore checks
// a thousand signatures, and a Latin-1 copy decoded by QByteArray::fromBase64Encoding took a tenth of
// its time. The standard alphabet; "=" only as the padding of the last group of four. Empty for
// anything else.
QByteArray decodeBase64(QStringView text)
{
    static constexpr std::array<qint8, 128> Values = [] {
        std::array<qint8, 128> values{};
        for (qint8 &value : values) {
            value = -1;
        }
        const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
        for (qint8 index = 0; index < 64; ++index) {
            values[size_t(alphabet[index])] = index;
        }
        return values;
    }();

    qsizetype length = text.size();
    if (text.endsWith(QLatin1Char('='))) {
        length -= text.endsWith(QLatin1String("==")) ? 2 : 1;
        if (text.size() % 4 != 0) {
            return {};
        }
    }
    if (length % 4 == 1) {
        return {};
    }
    QByteArray bytes(int(length * 3 / 4), Qt::Uninitialized);
    char *out = bytes.data();
    quint32 accumulator = 0;
    int bits = 0;
    for (const QChar character : text.left(length)) {
        const ushort code = character.unicode();
        const int value = code < Values.size() ? Values[code] : -1;
        if (value < 0) {
            return {};
        }
        accumulator = (accumulator << 6) | quint32(value);
        bits += 6;
        if (bits >= 8) {
            bits -= 8;
            *out++ = char(accumulator >> bits);
        }
    }
    return bytes;
}
} // namespace

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
    const QByteArray decoded = decodeBase64(signature.toString());
    if (decoded.isEmpty()) {
        return false;
    }
    const QByteArray bytes = signedBytes(object);
    if (bytes.isEmpty()) {
        return false;
    }
    return key.verify(bytes, decoded);
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

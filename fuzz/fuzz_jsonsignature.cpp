// Signed JSON as it arrives: any document is canonicalized and its signature checked against a fixed
// key. The canonical form must be a fixed point: read back and canonicalized again, it is unchanged,
// and what verified before still verifies.

#include "fuzzsupport.h"

#include <VantroCrypto/jsoncanonical.h>
#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/publickey.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using vn::crypto::JsonCanonical;
using vn::crypto::JsonSignature;

namespace {

QJsonValue rootOf(const QJsonDocument &document)
{
    return document.isObject() ? QJsonValue(document.object()) : QJsonValue(document.array());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    static const vn::crypto::PublicKey key(QStringLiteral(VANTRO_FUZZ_KEY));
    FUZZ_CHECK(key.isValid());

    const QJsonDocument document =
        QJsonDocument::fromJson(QByteArray(reinterpret_cast<const char *>(data), int(size)));
    if (document.isNull()) {
        return 0;
    }
    const bool verified = document.isObject() && JsonSignature::verify(document.object(), key);
    const QByteArray canonical = JsonCanonical::serialize(rootOf(document));
    if (canonical.isEmpty()) {
        return 0; // a lone surrogate has no canonical form
    }
    QJsonParseError error;
    const QJsonDocument reread = QJsonDocument::fromJson(canonical, &error);
    FUZZ_CHECK(error.error == QJsonParseError::NoError);
    FUZZ_CHECK(JsonCanonical::serialize(rootOf(reread)) == canonical);
    FUZZ_CHECK(!verified || JsonSignature::verify(reread.object(), key));
    return 0;
}

// JsonSignature::verify of a typical signed record against the bare OpenSSL verification of the
// same canonical bytes with an already parsed key: what the JSON layer adds to a signature check.

#include "benchsupport.h"

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QJsonDocument>
#include <QJsonObject>

using namespace vn::crypto;

int main()
{
    const PrivateKey privateKey(AbstractKey::RSA, 3072);
    const PublicKey publicKey = privateKey.publicKey();
    // An identity-like record of a few hundred bytes.
    const QByteArray record = R"({
        "uuid": "6f1c2a9e-3b4d-4e5f-8a7b-9c0d1e2f3a4b", "name": "Account identity of Zo\u00eb Example",
        "email": "zoe@example.org", "issued": 1700000000, "expires": 1731536000,
        "keyFingerprint": "q3vN0b2Gm8w0sXb3f4Z1m9Yq2Lr5Tt7Uu8Vv9Ww0Xx4=", "roles": ["owner", "billing"],
        "limits": {"seats": 25, "storage": 1.5e10, "trial": false},
        "parent": "0d9f8e7c-6b5a-4a3b-2c1d-0e9f8a7b6c5d"})";
    const QJsonObject object = JsonSignature::sign(QJsonDocument::fromJson(record).object(), privateKey);
    const QByteArray bytes = JsonSignature::signedBytes(object);
    const QByteArray signature =
        QByteArray::fromBase64(object.value(QStringLiteral("signature")).toString().toLatin1());
    // The floor parses its key once, like any caller that keeps keys around.
    const bench::Key key = bench::readPublicKey(publicKey.toPEM());
    if (!JsonSignature::verify(object, publicKey) || !bench::verifyPss(key.get(), bytes, signature)) {
        bench::fail("jsonsignature", "the signed record does not verify");
    }

    int failures = 0;
    bench::compare("jsonsignature",
                   {"JsonSignature::verify", [&] { failures += !JsonSignature::verify(object, publicKey); }},
                   {"bare EVP verify", [&] { failures += !bench::verifyPss(key.get(), bytes, signature); }},
                   {40, 200}, 1.25);
    if (failures) {
        bench::fail("jsonsignature", "a verification failed");
    }
    return 0;
}

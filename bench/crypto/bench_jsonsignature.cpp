// JsonSignature::verify of a typical signed record against the bare OpenSSL verification of the
// same canonical bytes with an already parsed key: what the JSON layer adds to a signature check.

#include "benchmarkclock.h"

#include <VantroCrypto/jsonsignature.h>
#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <cstdio>

using namespace vn::crypto;

namespace {

// An identity-like record of a few hundred bytes.
QJsonObject typicalRecord()
{
    return QJsonObject{
        {QStringLiteral("uuid"), QStringLiteral("6f1c2a9e-3b4d-4e5f-8a7b-9c0d1e2f3a4b")},
        {QStringLiteral("name"), QStringLiteral("Account identity of Zo\u00eb Example")},
        {QStringLiteral("email"), QStringLiteral("zoe@example.org")},
        {QStringLiteral("issued"), 1700000000},
        {QStringLiteral("expires"), 1731536000},
        {QStringLiteral("keyFingerprint"), QStringLiteral("q3vN0b2Gm8w0sXb3f4Z1m9Yq2Lr5Tt7Uu8Vv9Ww0Xx4=")},
        {QStringLiteral("roles"), QJsonArray{QStringLiteral("owner"), QStringLiteral("billing")}},
        {QStringLiteral("limits"), QJsonObject{{QStringLiteral("seats"), 25},
                                               {QStringLiteral("storage"), 1.5e10},
                                               {QStringLiteral("trial"), false}}},
        {QStringLiteral("parent"), QStringLiteral("0d9f8e7c-6b5a-4a3b-2c1d-0e9f8a7b6c5d")},
    };
}

} // namespace

int main()
{
    const PrivateKey privateKey(AbstractKey::RSA, 3072);
    const PublicKey publicKey = privateKey.publicKey();
    const QJsonObject object = JsonSignature::sign(typicalRecord(), privateKey);
    if (!JsonSignature::verify(object, publicKey)) {
        std::fprintf(stderr, "the signed record does not verify\n");
        return 1;
    }
    const QByteArray bytes = JsonSignature::signedBytes(object);
    const QByteArray signature =
        QByteArray::fromBase64(object.value(QStringLiteral("signature")).toString().toLatin1());

    // The baseline parses its key once, like any caller that keeps keys around.
    const QByteArray pem = publicKey.toPEM();
    BIO *bio = BIO_new_mem_buf(pem.constData(), pem.size());
    EVP_PKEY *key = PEM_read_bio_PUBKEY(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    int saltLength = 32;
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_PAD_MODE, const_cast<char *>("pss"), 0),
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_MGF1_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PSS_SALTLEN, &saltLength),
        OSSL_PARAM_construct_end(),
    };

    int failures = 0;
    const auto bare = [&] {
        EVP_MD_CTX *context = EVP_MD_CTX_new();
        const bool ok =
            EVP_DigestVerifyInit_ex(context, nullptr, "SHA256", nullptr, nullptr, key, parameters) == 1 &&
            EVP_DigestVerify(context, reinterpret_cast<const unsigned char *>(signature.constData()),
                             size_t(signature.size()),
                             reinterpret_cast<const unsigned char *>(bytes.constData()),
                             size_t(bytes.size())) == 1;
        EVP_MD_CTX_free(context);
        failures += !ok;
    };
    const auto ours = [&] { failures += !JsonSignature::verify(object, publicKey); };

    const auto [bareTime, ourTime] = nanosecondsPerCall(200, 40, bare, ours);
    EVP_PKEY_free(key);
    if (failures) {
        std::fprintf(stderr, "%d verifications failed\n", failures);
        return 1;
    }

    std::printf("record: %d canonical bytes, RSA-%d\n", int(bytes.size()), publicKey.bits());
    std::printf("bare EVP verify:        %8.2f us\n", bareTime / 1000);
    std::printf("JsonSignature::verify:  %8.2f us\n", ourTime / 1000);
    std::printf("ratio verify/bare: %.3f\n", ourTime / bareTime);
    return 0;
}

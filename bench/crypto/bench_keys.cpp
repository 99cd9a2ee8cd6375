// Reading PEM keys and taking fingerprints against the bare OpenSSL calls for the same job
// (PEM_read_bio_PUBKEY, PEM_read_bio_PrivateKey, i2d_PUBKEY and a SHA-256 of its output). The
// account library reads a public key for every identity of a chain on each profile restore.

#include "benchmarkclock.h"

#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <cstdio>

using namespace vn::crypto;

namespace {

template<typename Read>
EVP_PKEY *readBare(const QByteArray &pem, Read read)
{
    BIO *bio = BIO_new_mem_buf(pem.constData(), pem.size());
    EVP_PKEY *key = read(bio, nullptr, nullptr, nullptr);
    BIO_free(bio);
    return key;
}

} // namespace

int main()
{
    const PrivateKey privateKey(AbstractKey::RSA, 3072);
    const QByteArray privatePem = privateKey.toPEM();
    const QByteArray publicPem = privateKey.publicKey().toPEM();
    EVP_PKEY *bareKey = readBare(publicPem, PEM_read_bio_PUBKEY);

    int failures = 0;
    const auto bareRead = [&] {
        EVP_PKEY *key = readBare(publicPem, PEM_read_bio_PUBKEY);
        failures += !key;
        EVP_PKEY_free(key);
    };
    const auto ourRead = [&] { failures += !PublicKey(publicPem).isValid(); };
    const auto bareReadPrivate = [&] {
        EVP_PKEY *key = readBare(privatePem, PEM_read_bio_PrivateKey);
        failures += !key;
        EVP_PKEY_free(key);
    };
    const auto ourReadPrivate = [&] { failures += !PrivateKey(privatePem).isValid(); };
    const auto bareFingerPrint = [&] {
        unsigned char *der = nullptr;
        const int length = i2d_PUBKEY(bareKey, &der);
        failures += QCryptographicHash::hash(QByteArray::fromRawData(reinterpret_cast<char *>(der), length),
                                             QCryptographicHash::Sha256)
                        .size() != 32;
        OPENSSL_free(der);
    };
    const auto ourFingerPrint = [&] { failures += privateKey.fingerPrint().size() != 32; };

    const auto [barePrivateTime, ourPrivateTime] =
        nanosecondsPerCall(20, 10, bareReadPrivate, ourReadPrivate);
    const auto [bareFingerPrintTime, ourFingerPrintTime] =
        nanosecondsPerCall(20, 10, bareFingerPrint, ourFingerPrint);
    const auto [bareTime, ourTime] = nanosecondsPerCall(20, 10, bareRead, ourRead);
    EVP_PKEY_free(bareKey);
    if (failures) {
        std::fprintf(stderr, "%d operations failed\n", failures);
        return 1;
    }

    std::printf("RSA-3072, microseconds per call   bare OpenSSL   VantroCrypto\n");
    std::printf("read private key PEM            %12.1f %14.1f\n", barePrivateTime / 1000,
                ourPrivateTime / 1000);
    std::printf("SHA-256 fingerprint             %12.1f %14.1f\n", bareFingerPrintTime / 1000,
                ourFingerPrintTime / 1000);
    std::printf("read public key PEM             %12.1f %14.1f\n", bareTime / 1000, ourTime / 1000);
    std::printf("ratio PublicKey(pem)/PEM_read_bio_PUBKEY: %.3f\n", ourTime / bareTime);
    return 0;
}

// Reading PEM keys and taking fingerprints against the bare OpenSSL calls for the same job
// (PEM_read_bio_PUBKEY, PEM_read_bio_PrivateKey, i2d_PUBKEY and a SHA-256 of its output). The
// account library reads a public key for every identity of a chain on each profile restore. The
// goals hold at half the bare cost: falling back to OpenSSL's decoders would miss them.

#include "benchsupport.h"

#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QCryptographicHash>

#include <openssl/crypto.h>
#include <openssl/x509.h>

using namespace vn::crypto;

int main()
{
    const PrivateKey privateKey(AbstractKey::RSA, 3072);
    const QByteArray privatePem = privateKey.toPEM();
    const QByteArray publicPem = privateKey.publicKey().toPEM();
    const bench::Key bareKey = bench::readPublicKey(publicPem);
    int failures = 0;
    const bench::Rounds rounds{10, 20};

    bench::compare(
        "keys/private-pem", {"PrivateKey(pem)", [&] { failures += !PrivateKey(privatePem).isValid(); }},
        {"PEM_read_bio_PrivateKey", [&] { failures += !bench::readPrivateKey(privatePem); }}, rounds, 0.5);
    bench::compare(
        "keys/fingerprint", {"fingerPrint()", [&] { failures += privateKey.fingerPrint().size() != 32; }},
        {"i2d_PUBKEY + SHA-256",
         [&] {
             unsigned char *der = nullptr;
             const int length = i2d_PUBKEY(bareKey.get(), &der);
             failures +=
                 QCryptographicHash::hash(QByteArray::fromRawData(reinterpret_cast<char *>(der), length),
                                          QCryptographicHash::Sha256)
                     .size() != 32;
             OPENSSL_free(der);
         }},
        rounds, 0.5);
    bench::compare(
        "keys/public-pem", {"PublicKey(pem)", [&] { failures += !PublicKey(publicPem).isValid(); }},
        {"PEM_read_bio_PUBKEY", [&] { failures += !bench::readPublicKey(publicPem); }}, rounds, 0.5);
    if (failures) {
        bench::fail("keys", "a key operation failed");
    }
    return 0;
}

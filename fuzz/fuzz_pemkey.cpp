// PEM keys. The crypto layer reads the common RSA forms with a reader of its own and hands anything
// else to OpenSSL, on the promise that this changes nothing: every input must give the key that
// OpenSSL alone makes of it, or no key when OpenSSL reads none. OpenSSL's reading, done here as the
// crypto layer's fallback does it, is the reference.

#include "fuzzsupport.h"

#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <memory>

using vn::crypto::PrivateKey;
using vn::crypto::PublicKey;

namespace {

const char Passphrase[] = "fuzz-test-only";

using Key = std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)>;

// @p key as PEM text, its public half or the whole key; empty when there is no RSA key.
QByteArray pemOf(const Key &key, bool whole)
{
    QByteArray pem;
    BIO *out = BIO_new(BIO_s_mem());
    if (key && EVP_PKEY_is_a(key.get(), "RSA") &&
        (whole ? PEM_write_bio_PrivateKey(out, key.get(), nullptr, nullptr, 0, nullptr, nullptr)
               : PEM_write_bio_PUBKEY(out, key.get())) == 1) {
        char *text = nullptr;
        const long length = BIO_get_mem_data(out, &text);
        pem = QByteArray(text, int(length));
    }
    BIO_free(out);
    return pem;
}

Key opensslPublicKey(const QByteArray &input)
{
    EVP_PKEY *key = nullptr;
    OSSL_DECODER_CTX *decoder =
        OSSL_DECODER_CTX_new_for_pkey(&key, "PEM", nullptr, nullptr, EVP_PKEY_PUBLIC_KEY, nullptr, nullptr);
    auto *bytes = reinterpret_cast<const unsigned char *>(input.constData());
    size_t length = size_t(input.size());
    const bool read = decoder && OSSL_DECODER_from_data(decoder, &bytes, &length) == 1;
    OSSL_DECODER_CTX_free(decoder);
    ERR_clear_error();
    if (!read) {
        EVP_PKEY_free(key);
        key = nullptr;
    }
    return Key(key, EVP_PKEY_free);
}

Key opensslPrivateKey(const QByteArray &input)
{
    BIO *in = BIO_new_mem_buf(input.constData(), input.size());
    Key key(PEM_read_bio_PrivateKey(in, nullptr, nullptr, const_cast<char *>(Passphrase)), EVP_PKEY_free);
    BIO_free(in);
    ERR_clear_error();
    return key;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    vn::fuzz::setUp();
    const QByteArray input(reinterpret_cast<const char *>(data), int(size));

    FUZZ_CHECK(PublicKey(input).toPEM() == pemOf(opensslPublicKey(input), false));

    const PrivateKey privateKey(input, QLatin1String(Passphrase));
    const Key reference = opensslPrivateKey(input);
    FUZZ_CHECK(privateKey.toPEM() == pemOf(reference, true));
    FUZZ_CHECK(privateKey.publicKey().toPEM() == pemOf(reference, false));
    return 0;
}

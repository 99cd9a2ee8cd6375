#include "privatekey.h"

#include "keydata_p.h"
#include "rsakeyencoding_p.h"

#include <openssl/bio.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

namespace vn::crypto {

namespace {

// Always handed to OpenSSL: without a callback it would prompt on the terminal.
int passphraseCallback(char *buffer, int size, int /*writing*/, void *userData)
{
    const QByteArray &passphrase = static_cast<const SecretBytes *>(userData)->bytes();
    if (passphrase.isEmpty() || passphrase.size() > size) {
        return 0;
    }
    memcpy(buffer, passphrase.constData(), size_t(passphrase.size()));
    return passphrase.size();
}

KeyData *readPrivatePem(const QByteArray &pem, const QString &passphrase)
{
    OpenSslErrorScope scope;
    // An unencrypted key needs no passphrase, so a given one is ignored, as OpenSSL ignores it.
    if (EVP_PKEY *key = RsaKeyEncoding::readPrivatePem(pem)) {
        return new KeyData(key);
    }
    ERR_clear_error();
    OpenSslPointer<BIO> bio(BIO_new_mem_buf(pem.constData(), pem.size()));
    SecretBytes secret(passphrase.toUtf8());
    // Reads PKCS#8 ("PRIVATE KEY"), encrypted PKCS#8 and the traditional "RSA PRIVATE KEY" form.
    OpenSslPointer<EVP_PKEY> key(
        bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, passphraseCallback, &secret) : nullptr);
    if (!key) {
        auto [code, text] = OpenSslErrorScope::takeErrors(QStringLiteral("Cannot read the private key"));
        return new KeyData(code, text);
    }
    if (!EVP_PKEY_is_a(key.get(), "RSA")) {
        return new KeyData(-1, QStringLiteral("Cannot read the private key: it is not an RSA key"));
    }
    return new KeyData(key.release());
}

KeyData *generate(int type, int bits)
{
    if (type != AbstractKey::RSA) {
        return new KeyData(
            -1, QStringLiteral("Cannot generate a key of type %1: only RSA is supported").arg(type));
    }
    OpenSslErrorScope scope;
    OpenSslPointer<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_name(nullptr, "RSA", nullptr));
    size_t size = size_t(bits > 0 ? bits : 0);
    const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_size_t(OSSL_PKEY_PARAM_RSA_BITS, &size),
        OSSL_PARAM_construct_end(),
    };
    EVP_PKEY *generated = nullptr;
    if (!context || EVP_PKEY_keygen_init(context.get()) != 1 ||
        EVP_PKEY_CTX_set_params(context.get(), parameters) != 1 ||
        EVP_PKEY_generate(context.get(), &generated) != 1) {
        EVP_PKEY_free(generated);
        auto [code, text] =
            OpenSslErrorScope::takeErrors(QStringLiteral("Cannot generate an RSA key of %1 bits").arg(bits));
        return new KeyData(code, text);
    }
    return new KeyData(generated);
}

QByteArray memoryContents(BIO *bio)
{
    char *data = nullptr;
    const long length = BIO_get_mem_data(bio, &data);
    return QByteArray(data, int(length));
}

} // namespace

PrivateKey::PrivateKey() = default;

PrivateKey::PrivateKey(const QByteArray &pem, const QString &passphrase)
    : AbstractKey(readPrivatePem(pem, passphrase))
{}

PrivateKey::PrivateKey(int type, int bits)
    : AbstractKey(generate(type, bits))
{}

QByteArray PrivateKey::toPEM() const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    OpenSslPointer<BIO> bio(BIO_new(BIO_s_mem()));
    // PEM_write_bio_PrivateKey writes PKCS#8 ("BEGIN PRIVATE KEY").
    if (!key || !bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot write the private key"));
        return {};
    }
    OpenSslErrorScope::recordSuccess(d);
    return memoryContents(bio.get());
}

QByteArray PrivateKey::toEncryptedPEM(const QString &passphrase) const
{
    OpenSslErrorScope scope;
    if (passphrase.isEmpty()) {
        OpenSslErrorScope::recordFailure(
            d, QStringLiteral("Cannot encrypt the private key with an empty passphrase"));
        return {};
    }
    EVP_PKEY *key = keyOf(d);
    OpenSslPointer<BIO> bio(BIO_new(BIO_s_mem()));
    SecretBytes secret(passphrase.toUtf8());
    if (!key || !bio ||
        PEM_write_bio_PKCS8PrivateKey(bio.get(), key, EVP_aes_256_cbc(), secret.bytes().constData(),
                                      secret.bytes().size(), nullptr, nullptr) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot write the encrypted private key"));
        return {};
    }
    OpenSslErrorScope::recordSuccess(d);
    return memoryContents(bio.get());
}

PublicKey PrivateKey::publicKey() const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("No key to take the public half of"));
        return PublicKey(new KeyData(error(), errorString()));
    }
    // Made from the modulus and public exponent alone: nothing of the private half comes along.
    OpenSslPointer<EVP_PKEY> publicHalf(RsaKeyEncoding::publicHalf(key));
    if (!publicHalf) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot take the public half of the key"));
        return PublicKey(new KeyData(error(), errorString()));
    }
    OpenSslErrorScope::recordSuccess(d);
    return PublicKey(new KeyData(publicHalf.release()));
}

QByteArray PrivateKey::decrypt(const QByteArray &cipher) const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot decrypt without a key"));
        return {};
    }
    OpenSslPointer<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    const auto *in = reinterpret_cast<const unsigned char *>(cipher.constData());
    size_t length = 0;
    if (!context || EVP_PKEY_decrypt_init_ex(context.get(), oaepParameters()) != 1 ||
        EVP_PKEY_decrypt(context.get(), nullptr, &length, in, size_t(cipher.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot decrypt"));
        return {};
    }
    QByteArray plain(int(length), Qt::Uninitialized);
    if (EVP_PKEY_decrypt(context.get(), reinterpret_cast<unsigned char *>(plain.data()), &length, in,
                         size_t(cipher.size())) != 1) {
        OPENSSL_cleanse(plain.data(), size_t(plain.size()));
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot decrypt"));
        return {};
    }
    plain.truncate(int(length));
    OpenSslErrorScope::recordSuccess(d);
    return plain;
}

QByteArray PrivateKey::sign(const QByteArray &data) const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot sign without a key"));
        return {};
    }
    OpenSslPointer<EVP_MD_CTX> context(EVP_MD_CTX_new());
    const auto *in = reinterpret_cast<const unsigned char *>(data.constData());
    size_t length = 0;
    if (!context ||
        EVP_DigestSignInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr, key, pssParameters()) !=
            1 ||
        EVP_DigestSign(context.get(), nullptr, &length, in, size_t(data.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot sign"));
        return {};
    }
    QByteArray signature(int(length), Qt::Uninitialized);
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char *>(signature.data()), &length, in,
                       size_t(data.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot sign"));
        return {};
    }
    signature.truncate(int(length));
    OpenSslErrorScope::recordSuccess(d);
    return signature;
}

} // namespace vn::crypto

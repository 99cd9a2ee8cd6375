#include "publickey.h"

#include "keydata_p.h"
#include "rsakeyencoding_p.h"

#include <QFile>

#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>

namespace vn::crypto {

namespace {

KeyData *readPublicPem(const QByteArray &pem)
{
    OpenSslErrorScope scope;
    if (EVP_PKEY *key = RsaKeyEncoding::readPublicPem(pem)) {
        return new KeyData(key);
    }
    // Any other form, and every error, is OpenSSL's: what the decoders make of it stands.
    ERR_clear_error();
    EVP_PKEY *decoded = nullptr;
    // No structure given: the decoders accept both SubjectPublicKeyInfo ("PUBLIC KEY") and the
    // PKCS#1 form ("RSA PUBLIC KEY"). Selecting only the public part rejects private key PEM.
    OpenSslPointer<OSSL_DECODER_CTX> decoder(OSSL_DECODER_CTX_new_for_pkey(
        &decoded, "PEM", nullptr, nullptr, EVP_PKEY_PUBLIC_KEY, nullptr, nullptr));
    auto *data = reinterpret_cast<const unsigned char *>(pem.constData());
    size_t length = size_t(pem.size());
    if (!decoder || OSSL_DECODER_from_data(decoder.get(), &data, &length) != 1 || !decoded) {
        auto [code, text] = OpenSslErrorScope::takeErrors(QStringLiteral("Cannot read the public key"));
        return new KeyData(code, text);
    }
    OpenSslPointer<EVP_PKEY> key(decoded);
    if (!EVP_PKEY_is_a(key.get(), "RSA")) {
        return new KeyData(-1, QStringLiteral("Cannot read the public key: it is not an RSA key"));
    }
    return new KeyData(key.release());
}

// A context ready to check one signature with @p data's key.
EVP_MD_CTX *newVerifyContext(const KeyData &data)
{
    const std::lock_guard<std::mutex> lock(data.verifyContextMutex);
    if (!data.verifyContext) {
        OpenSslPointer<EVP_MD_CTX> context(EVP_MD_CTX_new());
        if (!context || EVP_DigestVerifyInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr, data.key,
                                                pssParameters()) != 1) {
            return nullptr;
        }
        data.verifyContext = std::move(context);
    }
    OpenSslPointer<EVP_MD_CTX> copy(EVP_MD_CTX_new());
    if (!copy || EVP_MD_CTX_copy_ex(copy.get(), data.verifyContext.get()) != 1) {
        return nullptr;
    }
    return copy.release();
}

KeyData *readPublicPemFile(const QString &path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        return new KeyData(
            -1, QStringLiteral("Cannot read the public key file %1: %2").arg(path, file.errorString()));
    }
    return readPublicPem(file.readAll());
}

} // namespace

PublicKey::PublicKey() = default;

PublicKey::PublicKey(const QString &path)
    : AbstractKey(readPublicPemFile(path))
{}

PublicKey::PublicKey(const char *path)
    : AbstractKey(readPublicPemFile(QString::fromUtf8(path)))
{}

PublicKey::PublicKey(const QByteArray &pem)
    : AbstractKey(readPublicPem(pem))
{}

PublicKey::PublicKey(KeyData *data)
    : AbstractKey(data)
{}

QByteArray PublicKey::toPEM() const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    const QByteArray der = key ? RsaKeyEncoding::subjectPublicKeyInfo(key) : QByteArray();
    if (der.isEmpty()) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot write the public key"));
        return {};
    }
    OpenSslErrorScope::recordSuccess(d);
    return RsaKeyEncoding::toPem(der, "PUBLIC KEY");
}

QByteArray PublicKey::encrypt(const QByteArray &plain) const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot encrypt without a key"));
        return {};
    }
    OpenSslPointer<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_from_pkey(nullptr, key, nullptr));
    const auto *in = reinterpret_cast<const unsigned char *>(plain.constData());
    size_t length = 0;
    if (!context || EVP_PKEY_encrypt_init_ex(context.get(), oaepParameters()) != 1 ||
        EVP_PKEY_encrypt(context.get(), nullptr, &length, in, size_t(plain.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot encrypt"));
        return {};
    }
    QByteArray cipher(int(length), Qt::Uninitialized);
    if (EVP_PKEY_encrypt(context.get(), reinterpret_cast<unsigned char *>(cipher.data()), &length, in,
                         size_t(plain.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot encrypt"));
        return {};
    }
    cipher.truncate(int(length));
    OpenSslErrorScope::recordSuccess(d);
    return cipher;
}

bool PublicKey::verify(const QByteArray &data, const QByteArray &signature) const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot verify without a key"));
        return false;
    }
    OpenSslPointer<EVP_MD_CTX> context(newVerifyContext(*d.constData()));
    if (!context) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot set up the signature check"));
        return false;
    }
    if (EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char *>(signature.constData()),
                         size_t(signature.size()), reinterpret_cast<const unsigned char *>(data.constData()),
                         size_t(data.size())) != 1) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("The signature does not verify"));
        return false;
    }
    OpenSslErrorScope::recordSuccess(d);
    return true;
}

bool PublicKey::operator==(const PublicKey &other) const
{
    EVP_PKEY *key = keyOf(d);
    EVP_PKEY *otherKey = keyOf(other.d);
    if (!key || !otherKey) {
        return key == otherKey;
    }
    return key == otherKey || EVP_PKEY_eq(key, otherKey) == 1;
}

} // namespace vn::crypto

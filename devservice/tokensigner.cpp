#include "tokensigner.h"

#include <QJsonDocument>
#include <QUuid>

#include <openssl/evp.h>
#include <openssl/pem.h>

namespace vn::devservice {

namespace {

struct KeyDeleter
{
    void operator()(EVP_PKEY *key) const { EVP_PKEY_free(key); }
};
struct BioDeleter
{
    void operator()(BIO *bio) const { BIO_free(bio); }
};
struct DigestContextDeleter
{
    void operator()(EVP_MD_CTX *context) const { EVP_MD_CTX_free(context); }
};
using KeyPointer = std::unique_ptr<EVP_PKEY, KeyDeleter>;

constexpr QByteArray::Base64Options SegmentEncoding =
    QByteArray::Base64Encoding | QByteArray::OmitTrailingEquals;

// The key classes of the crypto library keep their OpenSSL key to themselves; the PEM text is the
// way across.
KeyPointer readKey(const QByteArray &pem, bool privateKey)
{
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(pem.constData(), int(pem.size())));
    if (!bio) {
        return nullptr;
    }
    return KeyPointer(privateKey ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr)
                                 : PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
}

} // namespace

class TokenSignerPrivate
{
public:
    KeyPointer key;
};

TokenSigner::TokenSigner(const crypto::PrivateKey &key)
    : d(std::make_unique<TokenSignerPrivate>())
{
    if (key.isValid()) {
        d->key = readKey(key.toPEM(), true);
    }
}

TokenSigner::~TokenSigner() = default;

bool TokenSigner::isValid() const
{
    return d->key != nullptr;
}

QByteArray TokenSigner::sign(const QJsonObject &claims) const
{
    if (!d->key) {
        return QByteArray();
    }
    static const QByteArray header =
        QByteArrayLiteral(R"({"alg":"RS256","typ":"JWT"})").toBase64(SegmentEncoding);
    const QByteArray signingInput =
        header + '.' + QJsonDocument(claims).toJson(QJsonDocument::Compact).toBase64(SegmentEncoding);

    std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    size_t length = 0;
    if (!context || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, d->key.get()) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &length,
                       reinterpret_cast<const unsigned char *>(signingInput.constData()),
                       size_t(signingInput.size())) != 1) {
        return QByteArray();
    }
    QByteArray signature(int(length), Qt::Uninitialized);
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char *>(signature.data()), &length,
                       reinterpret_cast<const unsigned char *>(signingInput.constData()),
                       size_t(signingInput.size())) != 1) {
        return QByteArray();
    }
    signature.resize(int(length));
    return signingInput + '.' + signature.toBase64(SegmentEncoding);
}

bool TokenSigner::verify(const QByteArray &token, const crypto::PublicKey &key)
{
    const int lastDot = token.lastIndexOf('.');
    if (lastDot < 0 || token.count('.') != 2 || !key.isValid()) {
        return false;
    }
    const KeyPointer publicKey = readKey(key.toPEM(), false);
    std::unique_ptr<EVP_MD_CTX, DigestContextDeleter> context(EVP_MD_CTX_new());
    if (!publicKey || !context ||
        EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, publicKey.get()) != 1) {
        return false;
    }
    const QByteArray signingInput = token.left(lastDot);
    const QByteArray signature = QByteArray::fromBase64(token.mid(lastDot + 1));
    return EVP_DigestVerify(context.get(), reinterpret_cast<const unsigned char *>(signature.constData()),
                            size_t(signature.size()),
                            reinterpret_cast<const unsigned char *>(signingInput.constData()),
                            size_t(signingInput.size())) == 1;
}

QJsonObject TokenSigner::claims(const QString &issuer, const QJsonValue &subject, const QJsonValue &audience,
                                qint64 issuedAt, qint64 expires)
{
    return QJsonObject{
        {QStringLiteral("iss"), issuer},
        {QStringLiteral("sub"), subject},
        {QStringLiteral("aud"), audience},
        {QStringLiteral("iat"), issuedAt},
        {QStringLiteral("exp"), expires},
        {QStringLiteral("jti"), QUuid::createUuid().toString(QUuid::WithoutBraces)},
    };
}

QJsonObject TokenSigner::readClaims(const QByteArray &token)
{
    return QJsonDocument::fromJson(QByteArray::fromBase64(token.split('.').value(1))).object();
}

} // namespace vn::devservice

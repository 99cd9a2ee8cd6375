#include "abstractkey.h"

#include "keydata_p.h"
#include "rsakeyencoding_p.h"

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/decoder.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/params.h>

namespace vn::crypto {

KeyData::KeyData(EVP_PKEY *key)
    : key(key)
{}

KeyData::KeyData(int error, const QString &errorString)
    : error(error)
    , errorString(errorString)
{}

KeyData::KeyData(const KeyData &other)
    : QSharedData(other)
    , key(other.key)
    , error(other.error)
    , errorString(other.errorString)
{
    if (key) {
        EVP_PKEY_up_ref(key);
    }
}

KeyData::~KeyData()
{
    EVP_PKEY_free(key);
}

void OpenSslDeleter::operator()(EVP_PKEY *key) const
{
    EVP_PKEY_free(key);
}

void OpenSslDeleter::operator()(EVP_PKEY_CTX *context) const
{
    EVP_PKEY_CTX_free(context);
}

void OpenSslDeleter::operator()(EVP_MD_CTX *context) const
{
    EVP_MD_CTX_free(context);
}

void OpenSslDeleter::operator()(BIO *bio) const
{
    BIO_free(bio);
}

void OpenSslDeleter::operator()(OSSL_DECODER_CTX *context) const
{
    OSSL_DECODER_CTX_free(context);
}

void OpenSslDeleter::operator()(BIGNUM *number) const
{
    BN_free(number);
}

SecretBytes::~SecretBytes()
{
    if (!m_bytes.isEmpty()) {
        OPENSSL_cleanse(m_bytes.data(), size_t(m_bytes.size()));
    }
}

OpenSslErrorScope::OpenSslErrorScope()
{
    ERR_clear_error();
}

OpenSslErrorScope::~OpenSslErrorScope()
{
    ERR_clear_error();
}

std::pair<int, QString> OpenSslErrorScope::takeErrors(const QString &what)
{
    const char *data = nullptr;
    int flags = 0;
    const unsigned long code = ERR_peek_last_error_data(&data, &flags);
    if (code == 0) {
        return {-1, what};
    }

    char description[256];
    ERR_error_string_n(code, description, sizeof description);
    QString text = what + QLatin1String(": ") + QString::fromUtf8(description);
    if ((flags & ERR_TXT_STRING) && data && *data) {
        text += QLatin1String(" (") + QString::fromUtf8(data) + QLatin1Char(')');
    }
    ERR_clear_error();
    return {static_cast<int>(code), text};
}

void OpenSslErrorScope::recordFailure(QSharedDataPointer<KeyData> &data, const QString &what)
{
    auto [code, text] = takeErrors(what);
    if (!data) {
        data = new KeyData;
    }
    data->error = code; // detaches
    data->errorString = std::move(text);
}

void OpenSslErrorScope::recordSuccess(QSharedDataPointer<KeyData> &data)
{
    // Reading through the const pointer keeps a shared value shared on the common path.
    const KeyData *current = data.constData();
    if (current && current->error == 0) {
        return;
    }
    if (!data) {
        data = new KeyData;
    }
    data->error = 0;
    data->errorString.clear();
}

const OSSL_PARAM *pssParameters()
{
    static int saltLength = 32;
    static const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_PAD_MODE, const_cast<char *>("pss"), 0),
        OSSL_PARAM_construct_utf8_string(OSSL_SIGNATURE_PARAM_MGF1_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_int(OSSL_SIGNATURE_PARAM_PSS_SALTLEN, &saltLength),
        OSSL_PARAM_construct_end(),
    };
    return parameters;
}

const OSSL_PARAM *oaepParameters()
{
    static const OSSL_PARAM parameters[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_PAD_MODE, const_cast<char *>("oaep"), 0),
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_OAEP_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_utf8_string(OSSL_ASYM_CIPHER_PARAM_MGF1_DIGEST, const_cast<char *>("SHA256"), 0),
        OSSL_PARAM_construct_end(),
    };
    return parameters;
}

AbstractKey::AbstractKey()
    : d(new KeyData)
{}

AbstractKey::AbstractKey(KeyData *data)
    : d(data)
{}

AbstractKey::AbstractKey(const AbstractKey &other) = default;
AbstractKey::AbstractKey(AbstractKey &&other) noexcept = default;
AbstractKey &AbstractKey::operator=(const AbstractKey &other) = default;
AbstractKey &AbstractKey::operator=(AbstractKey &&other) noexcept = default;
AbstractKey::~AbstractKey() = default;

bool AbstractKey::isValid() const
{
    return keyOf(d) != nullptr;
}

int AbstractKey::type() const
{
    EVP_PKEY *key = keyOf(d);
    return key && EVP_PKEY_is_a(key, "RSA") ? RSA : InvalidType;
}

int AbstractKey::bits() const
{
    EVP_PKEY *key = keyOf(d);
    return key ? EVP_PKEY_get_bits(key) : 0;
}

QByteArray AbstractKey::fingerPrint(QCryptographicHash::Algorithm algorithm) const
{
    OpenSslErrorScope scope;
    EVP_PKEY *key = keyOf(d);
    if (!key) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("No key to take a fingerprint of"));
        return {};
    }
    // The SubjectPublicKeyInfo of the public half, also for a private key.
    const QByteArray der = RsaKeyEncoding::subjectPublicKeyInfo(key);
    if (der.isEmpty()) {
        OpenSslErrorScope::recordFailure(d, QStringLiteral("Cannot encode the public key"));
        return {};
    }
    OpenSslErrorScope::recordSuccess(d);
    return QCryptographicHash::hash(der, algorithm);
}

int AbstractKey::error() const
{
    return d ? d->error : 0;
}

QString AbstractKey::errorString() const
{
    return d ? d->errorString : QString();
}

} // namespace vn::crypto

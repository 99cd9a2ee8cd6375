#pragma once

#include <QByteArray>
#include <QSharedData>
#include <QSharedDataPointer>
#include <QString>

#include <openssl/types.h>

#include <memory>
#include <mutex>
#include <utility>

namespace vn::crypto {

/// Releases OpenSSL objects held in std::unique_ptr.
struct OpenSslDeleter
{
    void operator()(EVP_PKEY *key) const;
    void operator()(EVP_PKEY_CTX *context) const;
    void operator()(EVP_MD_CTX *context) const;
    void operator()(BIO *bio) const;
    void operator()(OSSL_DECODER_CTX *context) const;
    void operator()(BIGNUM *number) const;
};

template<typename T>
using OpenSslPointer = std::unique_ptr<T, OpenSslDeleter>;

/// The shared value behind every key: one OpenSSL key plus the outcome of the last operation.
///
/// Copies share the EVP_PKEY through OpenSSL's own reference count; the key itself is never
/// modified after construction, so copies in different threads may use it at the same time. The
/// error members belong to one key value: a const operation that fails detaches first (see
/// recordFailure()), so a failure never shows up in the other copies.
class KeyData : public QSharedData
{
public:
    KeyData() = default;
    /// Takes ownership of @p key (may be null).
    explicit KeyData(EVP_PKEY *key);
    /// An invalid key that remembers why it could not be made.
    KeyData(int error, const QString &errorString);
    KeyData(const KeyData &other);
    KeyData &operator=(const KeyData &) = delete;
    ~KeyData();

    EVP_PKEY *key = nullptr;
    int error = 0;
    QString errorString;

    /// A signature check of this key set up once, on first use, and copied for every check: setting
    /// one up costs a tenth of checking an RSA-3072 signature. Copies of the value make their own.
    mutable OpenSslPointer<EVP_MD_CTX> verifyContext;
    mutable std::mutex verifyContextMutex;
};

/// Bytes that hold a secret (a passphrase, private key material), wiped when they go.
class SecretBytes
{
public:
    SecretBytes() = default;
    explicit SecretBytes(QByteArray bytes)
        : m_bytes(std::move(bytes))
    {}
    ~SecretBytes();
    SecretBytes(const SecretBytes &) = delete;
    SecretBytes &operator=(const SecretBytes &) = delete;

    QByteArray &bytes() { return m_bytes; }
    const QByteArray &bytes() const { return m_bytes; }

private:
    QByteArray m_bytes;
};

/// One operation's view of OpenSSL's (per-thread) error queue. It empties the queue when the
/// operation starts and again when it ends, so one call's errors never leak into a later call
/// or into other code that reads the queue.
class OpenSslErrorScope
{
public:
    OpenSslErrorScope();
    ~OpenSslErrorScope();
    OpenSslErrorScope(const OpenSslErrorScope &) = delete;
    OpenSslErrorScope &operator=(const OpenSslErrorScope &) = delete;

    /// Drains the queue into (code, text). The code is the newest OpenSSL error, which names the
    /// failed operation at the highest level, or -1 when OpenSSL reported nothing. The text is
    /// "<what>: <OpenSSL's description>" or just @p what.
    static std::pair<int, QString> takeErrors(const QString &what);

    /// Records a failure of @p what in @p data's own copy.
    static void recordFailure(QSharedDataPointer<KeyData> &data, const QString &what);
    /// Records success: clears a previous failure. Detaches only when there was one to clear.
    static void recordSuccess(QSharedDataPointer<KeyData> &data);
};

/// RSASSA-PSS with SHA-256, MGF1-SHA-256 and a 32-byte salt, for EVP_DigestSign/VerifyInit_ex.
/// Both halves of a key pair take their padding from here so that they can never drift apart.
const OSSL_PARAM *pssParameters();
/// RSA-OAEP with SHA-256 and MGF1-SHA-256 and an empty label, for EVP_PKEY_en/decrypt_init_ex.
const OSSL_PARAM *oaepParameters();

/// The key held by @p data, or null (also for a moved-from value).
inline EVP_PKEY *keyOf(const QSharedDataPointer<KeyData> &data)
{
    return data ? data->key : nullptr;
}

} // namespace vn::crypto

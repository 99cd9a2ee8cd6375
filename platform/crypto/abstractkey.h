#pragma once

#include <VantroCrypto/vantrocrypto_export.h>

#include <QByteArray>
#include <QCryptographicHash>
#include <QSharedDataPointer>
#include <QString>

namespace vn::crypto {

class KeyData;

/// An asymmetric key: an implicitly shared value around an OpenSSL key.
///
/// Nothing throws: a failure leaves an invalid key, an empty result or false, and error() and
/// errorString() describe the last failure.
class VANTROCRYPTO_EXPORT AbstractKey
{
public:
    enum Type {
        InvalidType = 0,
        RSA = 1,
    };

    AbstractKey(const AbstractKey &other);
    AbstractKey(AbstractKey &&other) noexcept;
    AbstractKey &operator=(const AbstractKey &other);
    AbstractKey &operator=(AbstractKey &&other) noexcept;
    virtual ~AbstractKey();

    bool isValid() const;
    /// RSA (1) for a usable key, InvalidType (0) otherwise.
    int type() const;
    /// The modulus size in bits, 0 for an invalid key.
    int bits() const;

    /// PEM text: unencrypted PKCS#8 for a private key, SubjectPublicKeyInfo for a public key.
    virtual QByteArray toPEM() const = 0;

    /// The hash of the DER SubjectPublicKeyInfo of the key's public half (the same for a private key
    /// and its public key), raw bytes. Empty for an invalid key.
    QByteArray fingerPrint(QCryptographicHash::Algorithm algorithm = QCryptographicHash::Sha256) const;

    /// 0 when the last operation succeeded; otherwise the OpenSSL error code, or -1 for a failure
    /// that OpenSSL did not report.
    int error() const;
    QString errorString() const;

protected:
    AbstractKey();
    explicit AbstractKey(KeyData *data);

    // mutable: a const operation that fails records its error in this value's own copy of the
    // data (copy on write), never in the data that other copies share.
    mutable QSharedDataPointer<KeyData> d;
};

} // namespace vn::crypto

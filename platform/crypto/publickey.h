#pragma once

#include <VantroCrypto/abstractkey.h>

namespace vn::crypto {

/// The public half of a key pair: verifies signatures and encrypts.
class VANTROCRYPTO_EXPORT PublicKey : public AbstractKey
{
public:
    PublicKey();
    /// Reads a PEM public key from the file at @p path (Qt resource paths included).
    explicit PublicKey(const QString &path);
    explicit PublicKey(const char *path);
    /// Parses PEM text (SubjectPublicKeyInfo, or a traditional RSA public key).
    explicit PublicKey(const QByteArray &pem);

    QByteArray toPEM() const override;

    /// RSA-OAEP with SHA-256 and MGF1-SHA-256, empty label. Empty on failure.
    QByteArray encrypt(const QByteArray &plain) const;

    /// RSASSA-PSS with SHA-256, MGF1-SHA-256 and a 32-byte salt, over @p data.
    bool verify(const QByteArray &data, const QByteArray &signature) const;

    bool operator==(const PublicKey &other) const;
    bool operator!=(const PublicKey &other) const { return !(*this == other); }

private:
    friend class PrivateKey;
    explicit PublicKey(KeyData *data);
};

} // namespace vn::crypto

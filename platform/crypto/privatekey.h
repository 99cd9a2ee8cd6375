#pragma once

#include <VantroCrypto/abstractkey.h>
#include <VantroCrypto/publickey.h>

namespace vn::crypto {

/// A private key: decrypts, signs, and gives its public half.
class VANTROCRYPTO_EXPORT PrivateKey : public AbstractKey
{
public:
    PrivateKey();
    /// Reads PEM text: PKCS#8 (encrypted with @p passphrase, or not) or a traditional RSA key.
    /// A wrong passphrase gives an invalid key with an error string.
    explicit PrivateKey(const QByteArray &pem, const QString &passphrase = QString());
    /// Generates a new key of @p type (RSA) with @p bits bits.
    PrivateKey(int type, int bits);

    /// Unencrypted PKCS#8 PEM.
    QByteArray toPEM() const override;
    /// PKCS#8 PEM encrypted with AES-256-CBC under @p passphrase.
    QByteArray toEncryptedPEM(const QString &passphrase) const;

    PublicKey publicKey() const;

    /// RSA-OAEP with SHA-256 and MGF1-SHA-256, empty label. Empty on failure, with error() set.
    QByteArray decrypt(const QByteArray &cipher) const;

    /// RSASSA-PSS with SHA-256, MGF1-SHA-256 and a 32-byte salt over @p data. Empty on failure.
    QByteArray sign(const QByteArray &data) const;
};

} // namespace vn::crypto

#pragma once

#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QByteArray>
#include <QString>

namespace vn::tools {

/// A key file as vantro-sign reads and writes it: PEM text holding a private key (PKCS#8,
/// encrypted or not, or a traditional RSA key) or a public key.
class KeyFile
{
public:
    enum Access {
        OwnerOnly, ///< readable and writable by the owner alone (0600), for private keys
        Shared,    ///< the permissions the umask gives, for public keys
    };

    /// Reads the key at @p path. An encrypted private key is opened with @p passphrase; an empty
    /// passphrase means none was given.
    KeyFile(const QString &path, const QString &passphrase);

    bool isValid() const;
    bool isPrivate() const;
    /// The private key; invalid when the file holds a public key.
    vn::crypto::PrivateKey privateKey() const;
    /// The public key, or the public half of the private key.
    vn::crypto::PublicKey publicKey() const;
    /// Why the key could not be read, as one line that never quotes the file's contents.
    QString errorString() const;

    /// Replaces or creates @p path with @p contents in one step: readers see the old file or the
    /// complete new one, never a part.
    static bool write(const QString &path, const QByteArray &contents, Access access, QString *errorString);

private:
    vn::crypto::PrivateKey m_privateKey;
    vn::crypto::PublicKey m_publicKey;
    QString m_errorString;
};

} // namespace vn::tools

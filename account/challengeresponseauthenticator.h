#pragma once

#include <VantroAccount/abstractauthenticator.h>
#include <VantroCrypto/privatekey.h>

#include <QUrl>

#include <memory>

namespace vn::account {

class ChallengeResponseAuthenticatorPrivate;

/// Logs a device (or a user) in with a key pair instead of a password.
///
/// The service knows the public key. The login takes two exchanges with the service: the first
/// names the key by its SHA-256 fingerprint and receives a random challenge encrypted to it; the
/// second returns the decrypted challenge and receives the access token. The private key never
/// leaves the process.
///
/// An authenticator whose service answered without a challenge, or whose key could not decrypt
/// the challenge, is spent: every later start() finishes with Busy. Use a new one for a new login.
/// After any other outcome the key stays set and start() may be called again.
class VANTROACCOUNT_EXPORT ChallengeResponseAuthenticator : public AbstractAuthenticator
{
    Q_OBJECT

public:
    explicit ChallengeResponseAuthenticator(QObject *parent = nullptr);
    ~ChallengeResponseAuthenticator() override;

    /// A copy of the key that answers challenges; invalid until one is set.
    vn::crypto::PrivateKey privateKey() const;
    /// Sets the key that answers challenges. Keys are compared by the SHA-1 fingerprint of their
    /// public half: setting the same key again changes nothing and emits nothing.
    void setPrivateKey(const vn::crypto::PrivateKey &key);

    /// Reads a PEM private key (PKCS#8, encrypted with @p passphrase or not, or traditional RSA)
    /// from @p file, a local file URL or a plain path, and sets it as with setPrivateKey(). Returns
    /// false, with the key unchanged and one warning saying why, when the file cannot be read or
    /// holds no key that opens. The passphrase is used once and not kept. This is how QML hands a
    /// device key over: the key itself is never a property.
    Q_INVOKABLE bool loadPrivateKey(const QUrl &file, const QString &passphrase = QString());

    void start() override;

Q_SIGNALS:
    void privateKeyChanged();

private Q_SLOTS:
    void receiveChallenge();
    void processResponse();

private:
    Q_DISABLE_COPY(ChallengeResponseAuthenticator)
    Q_DECLARE_PRIVATE(ChallengeResponseAuthenticator)
    friend class ChallengeResponseAuthenticatorPrivate;
};

} // namespace vn::account

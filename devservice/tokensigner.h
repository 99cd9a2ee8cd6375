#pragma once

#include <VantroCrypto/privatekey.h>

#include <QByteArray>
#include <QJsonObject>

#include <memory>

namespace vn::devservice {

class TokenSignerPrivate;

/// Issues compact tokens: the header {"alg":"RS256","typ":"JWT"}, the claims, and an RS256
/// (RSASSA-PKCS1-v1_5 with SHA-256) signature. The header and claims segments are written in the
/// standard base64 alphabet without padding, because that is the alphabet the account library
/// decodes them with; the signature segment uses the same alphabet.
///
/// Safe to use from several threads at once: signing only reads the key.
class TokenSigner
{
public:
    explicit TokenSigner(const crypto::PrivateKey &key);
    ~TokenSigner();

    bool isValid() const;

    /// The compact token for @p claims; empty when the key cannot sign.
    QByteArray sign(const QJsonObject &claims) const;

    /// Checks a token's signature with @p key.
    static bool verify(const QByteArray &token, const crypto::PublicKey &key);

    /// What every token of the service claims: "iss", "sub", "aud", "iat" (@p issuedAt), "exp"
    /// (@p expires; both in seconds since the epoch) and a "jti" of its own.
    static QJsonObject claims(const QString &issuer, const QJsonValue &subject, const QJsonValue &audience,
                              qint64 issuedAt, qint64 expires);
    /// The claims of a compact token as its second segment holds them; empty when they do not read.
    static QJsonObject readClaims(const QByteArray &token);

private:
    Q_DISABLE_COPY(TokenSigner)
    std::unique_ptr<TokenSignerPrivate> const d;
};

} // namespace vn::devservice

#pragma once

#include "abstractauthenticator_p.h"

#include <Vantro/postrequest.h>
#include <VantroCrypto/privatekey.h>
#include <VantroCrypto/publickey.h>

#include <QJsonObject>
#include <QPointer>

namespace vn::account {

class ChallengeResponseAuthenticator;

class ChallengeResponseAuthenticatorPrivate : public AbstractAuthenticatorPrivate
{
    Q_DECLARE_PUBLIC(ChallengeResponseAuthenticator)

public:
    explicit ChallengeResponseAuthenticatorPrivate(ChallengeResponseAuthenticator *owner)
        : AbstractAuthenticatorPrivate(owner)
    {}

    /// Sends one phase of the exchange to "api/v1/authenticate" and makes it the running request.
    vn::PostRequest *post(const QJsonObject &body);

    crypto::PrivateKey privateKey;
    /// The public half of privateKey; its fingerprint names the key to the service.
    crypto::PublicKey publicKey;
    /// The phase in flight. Requests are children of the authenticator and stay until it goes; a
    /// request deleted elsewhere reads as none.
    QPointer<vn::PostRequest> runningRequest;
};

} // namespace vn::account

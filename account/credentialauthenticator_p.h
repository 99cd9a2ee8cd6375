#pragma once

#include "abstractauthenticator_p.h"

#include <QString>

namespace vn {
class PostRequest;
}

namespace vn::account {

class CredentialAuthenticator;

class CredentialAuthenticatorPrivate : public AbstractAuthenticatorPrivate
{
    Q_DECLARE_PUBLIC(CredentialAuthenticator)

public:
    explicit CredentialAuthenticatorPrivate(CredentialAuthenticator *owner)
        : AbstractAuthenticatorPrivate(owner)
    {}

    QString userName;
    QString password;
    /// The login in flight, null when idle. Finished requests stay children of the authenticator.
    vn::PostRequest *request = nullptr;
};

} // namespace vn::account

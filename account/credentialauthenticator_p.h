#pragma once

#include <QString>

namespace vn {
class PostRequest;
}

namespace vn::account {

class CredentialAuthenticator;

class CredentialAuthenticatorPrivate
{
public:
    explicit CredentialAuthenticatorPrivate(CredentialAuthenticator *owner)
        : q(owner)
    {}

    CredentialAuthenticator *const q;
    QString userName;
    QString password;
    /// The login in flight, null when idle. Finished requests stay children of the authenticator.
    vn::PostRequest *request = nullptr;
};

} // namespace vn::account

#pragma once

#include <QString>

class QJsonObject;
class QNetworkAccessManager;

namespace vn {
class PostRequest;
}

namespace vn::account {

class AbstractAuthenticator;

class AbstractAuthenticatorPrivate
{
public:
    explicit AbstractAuthenticatorPrivate(AbstractAuthenticator *owner)
        : q_ptr(owner)
    {}
    virtual ~AbstractAuthenticatorPrivate() = default;

    /// Posts @p body to the service's "authenticate" endpoint, without a token: the login's request
    /// is how the token is obtained. The request is a child of the authenticator and logs no failure
    /// of its own: they reach the application through finished(), and the account logs the status.
    vn::PostRequest *postAuthentication(const QJsonObject &body);

    AbstractAuthenticator *const q_ptr;
    bool persistent = false;
    QString hostInfo;
    QNetworkAccessManager *network = nullptr;
};

} // namespace vn::account

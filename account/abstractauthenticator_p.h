#pragma once

#include <QString>

class QNetworkAccessManager;

namespace vn::account {

class AbstractAuthenticator;

class AbstractAuthenticatorPrivate
{
public:
    explicit AbstractAuthenticatorPrivate(AbstractAuthenticator *owner)
        : q_ptr(owner)
    {}
    virtual ~AbstractAuthenticatorPrivate() = default;

    AbstractAuthenticator *const q_ptr;
    bool persistent = false;
    QString hostInfo;
    QNetworkAccessManager *network = nullptr;
};

} // namespace vn::account

#pragma once

#include <QString>

class QNetworkAccessManager;

namespace vn::account {

class AbstractAuthenticator;

class AbstractAuthenticatorPrivate
{
public:
    explicit AbstractAuthenticatorPrivate(AbstractAuthenticator *owner)
        : q(owner)
    {}

    AbstractAuthenticator *const q;
    bool persistent = false;
    QString hostInfo;
    QNetworkAccessManager *network = nullptr;
};

} // namespace vn::account

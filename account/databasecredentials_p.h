#pragma once

#include <VantroNetwork/authorizationregistry.h>

#include <QString>

namespace vn::account {

class DatabaseCredentials;

class DatabaseCredentialsPrivate
{
public:
    explicit DatabaseCredentialsPrivate(DatabaseCredentials *owner)
        : q(owner)
    {}

    DatabaseCredentials *const q;
    QString credentialType;
    // Empty when nothing was registered; releasing it withdraws the authorization from the registry.
    network::AuthorizationHandle authorization;
};

} // namespace vn::account

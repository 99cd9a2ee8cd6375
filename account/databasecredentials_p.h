#pragma once

#include "resource_p.h"

#include <VantroNetwork/authorizationregistry.h>

#include <QString>

namespace vn::account {

class DatabaseCredentials;

class DatabaseCredentialsPrivate : public ResourcePrivate
{
    Q_DECLARE_PUBLIC(DatabaseCredentials)

public:
    explicit DatabaseCredentialsPrivate(DatabaseCredentials *owner)
        : ResourcePrivate(owner)
    {}

    QString credentialType;
    // Empty when nothing was registered; releasing it withdraws the authorization from the registry.
    network::AuthorizationHandle authorization;
};

} // namespace vn::account

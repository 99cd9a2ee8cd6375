#pragma once

#include <VantroCrypto/publickey.h>

#include <QJsonObject>

namespace vn::account {

class Identity;

class AccountIdentityPrivate
{
public:
    QJsonObject record;
    vn::crypto::PublicKey publicKey;
    Identity *parentIdentity = nullptr; // not owned
    bool valid = false;
};

} // namespace vn::account

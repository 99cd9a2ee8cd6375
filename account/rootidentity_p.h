#pragma once

#include <VantroCrypto/publickey.h>

#include <QString>

namespace vn::account {

class RootIdentityPrivate
{
public:
    QString uuid;
    QString name;
    vn::crypto::PublicKey publicKey;
};

} // namespace vn::account

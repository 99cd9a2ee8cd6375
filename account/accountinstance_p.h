#pragma once

namespace vn::account {

class AccountIdentity;
class AccountInstance;

class AccountInstancePrivate
{
public:
    explicit AccountInstancePrivate(AccountInstance *owner)
        : q(owner)
    {}

    AccountInstance *const q;
    AccountIdentity *identity = nullptr; // a QObject child of the instance, or null
};

} // namespace vn::account

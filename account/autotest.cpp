// The seams of autotest_p.h. They live apart from the classes they reach into, so that the test
// header is included by this file alone within the library, and by no header.

#include "autotest_p.h"

#include "accountinstance_p.h"

namespace vn::account {

void setIdentityForTests(AccountInstance &instance, AccountIdentity *identity)
{
    AccountInstancePrivate::get(&instance)->replaceIdentity(identity);
}

} // namespace vn::account

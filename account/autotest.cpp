// The seams of autotest_p.h. They live apart from the classes they reach into, so that no file of
// the library includes the test header.

#include "autotest_p.h"

#include "accountinstance_p.h"

namespace vn::account {

void setIdentityForTests(AccountInstance &instance, AccountIdentity *identity)
{
    AccountInstancePrivate::get(&instance)->replaceIdentity(identity);
}

} // namespace vn::account

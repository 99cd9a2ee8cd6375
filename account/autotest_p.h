#pragma once

// What the library's own tests, benchmarks and fuzz targets reach beyond the installed interface,
// in one place: the account instance, the time scale of its schedule, the decoded view of a token,
// the service's retry delays, the login list's rows, and the seams below. They are exported only in
// builds with tests or benchmarks (VANTROACCOUNT_AUTOTEST_EXPORT); applications never see this
// header.

#include "accountinstance.h"
#include "jsonwebtoken_p.h"
#include "loginlistmodel_p.h"
#include "service_p.h"
#include "timescale_p.h"

namespace vn::account {

/// Makes @p identity, a chain made for @p instance, the instance's own, as the service's identity
/// answer does after a login: for checking resources against a chain without a login. A chain it
/// replaces is scheduled for deletion link by link.
VANTROACCOUNT_AUTOTEST_EXPORT void setIdentityForTests(AccountInstance &instance, AccountIdentity *identity);

} // namespace vn::account

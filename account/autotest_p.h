#pragma once

// What the library's own tests and benchmarks reach beyond the installed interface, in one place:
// the account instance, the time scale of its schedule, the decoded view of a token, the service's
// retry delays and the login list's rows. The classes are exported only in builds with tests or
// benchmarks (VANTROACCOUNT_AUTOTEST_EXPORT); applications never see this header.

#include "accountinstance.h"
#include "jsonwebtoken_p.h"
#include "loginlistmodel_p.h"
#include "service_p.h"
#include "timescale_p.h"

#pragma once

#include <QLoggingCategory>

// The account library's logging categories, one per area, each enabled from its own level.
Q_DECLARE_LOGGING_CATEGORY(lcAccount)         // "vantro.account", from info
Q_DECLARE_LOGGING_CATEGORY(lcAccountIdentity) // "vantro.account.identity", from warning
Q_DECLARE_LOGGING_CATEGORY(lcAccountResource) // "vantro.account.resource", from info
Q_DECLARE_LOGGING_CATEGORY(lcAccountKeyAuth)  // "vantro.account.keyauth", from debug
Q_DECLARE_LOGGING_CATEGORY(lcAccountService)  // "vantro.account.service", from debug
Q_DECLARE_LOGGING_CATEGORY(lcLoginList)       // "vantro.loginlist", from info
Q_DECLARE_LOGGING_CATEGORY(lcPasswordReset)   // "vantro.account.passwordreset", from info

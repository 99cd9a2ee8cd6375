#include "logging_p.h"

Q_LOGGING_CATEGORY(lcAccount, "vantro.account", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAccountIdentity, "vantro.account.identity", QtWarningMsg)
Q_LOGGING_CATEGORY(lcAccountResource, "vantro.account.resource", QtInfoMsg)
Q_LOGGING_CATEGORY(lcAccountKeyAuth, "vantro.account.keyauth", QtDebugMsg)
Q_LOGGING_CATEGORY(lcAccountService, "vantro.account.service", QtDebugMsg)
Q_LOGGING_CATEGORY(lcLoginList, "vantro.loginlist", QtInfoMsg)
Q_LOGGING_CATEGORY(lcPasswordReset, "vantro.account.passwordreset", QtInfoMsg)

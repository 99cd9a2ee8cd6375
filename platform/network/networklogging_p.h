#pragma once

#include <QLoggingCategory>

namespace vn::network {

// Registrations, withdrawals and refusals. Never a credential: hosts, schemes and counts only.
Q_DECLARE_LOGGING_CATEGORY(lcNetwork)

} // namespace vn::network

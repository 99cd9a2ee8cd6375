#include "networklogging_p.h"

namespace vn::network {

Q_LOGGING_CATEGORY(lcNetwork, "vantro.network", QtInfoMsg)

} // namespace vn::network

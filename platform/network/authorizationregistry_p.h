#pragma once

#include "authorizationregistry.h"

#include <mutex>
#include <vector>

namespace vn::network {

class AuthorizationRegistryPrivate
{
public:
    /// The newest registered authorization that matches @p url, or nullptr. The caller holds mutex
    /// for as long as it uses the result.
    const Authorization *newestMatch(const QUrl &url) const;

    mutable std::mutex mutex;
    /// In order of registration, oldest first.
    std::vector<std::unique_ptr<Authorization>> authorizations;
};

} // namespace vn::network

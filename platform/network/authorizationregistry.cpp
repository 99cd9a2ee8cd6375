#include "authorizationregistry.h"
#include "authorizationregistry_p.h"
#include "networklogging_p.h"

#include <QUrl>

#include <algorithm>

namespace vn::network {

const Authorization *AuthorizationRegistryPrivate::newestMatch(const QUrl &url) const
{
    // The newest registration wins, so a renewed token takes over from the one it replaces even
    // before the holder has withdrawn the old one.
    for (auto it = authorizations.rbegin(); it != authorizations.rend(); ++it) {
        if ((*it)->matches(url)) {
            return it->get();
        }
    }
    return nullptr;
}

AuthorizationRegistry::AuthorizationRegistry()
    : d(std::make_unique<AuthorizationRegistryPrivate>())
{}

AuthorizationRegistry::~AuthorizationRegistry() = default;

std::shared_ptr<AuthorizationRegistry> AuthorizationRegistry::instance()
{
    // Handles keep their own reference, so the registry outlives every holder that still has to
    // withdraw an authorization, even during the teardown of static objects.
    static const std::shared_ptr<AuthorizationRegistry> registry = std::make_shared<AuthorizationRegistry>();
    return registry;
}

Authorization *AuthorizationRegistry::add(Authorization *authorization)
{
    if (!authorization) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(d->mutex);
    const auto found =
        std::find_if(d->authorizations.cbegin(), d->authorizations.cend(),
                     [authorization](const auto &entry) { return entry.get() == authorization; });
    if (found != d->authorizations.cend()) {
        qCWarning(lcNetwork) << "Authorization for" << authorization->hosts() << "is already registered";
        return authorization;
    }
    d->authorizations.emplace_back(authorization);
    qCDebug(lcNetwork) << "Registered authorization for" << authorization->hosts() << "- now"
                       << d->authorizations.size();
    return authorization;
}

std::unique_ptr<Authorization> AuthorizationRegistry::remove(Authorization *authorization)
{
    if (!authorization) {
        return nullptr;
    }
    std::lock_guard<std::mutex> lock(d->mutex);
    const auto found =
        std::find_if(d->authorizations.begin(), d->authorizations.end(),
                     [authorization](const auto &entry) { return entry.get() == authorization; });
    if (found == d->authorizations.end()) {
        return nullptr;
    }
    std::unique_ptr<Authorization> released = std::move(*found);
    d->authorizations.erase(found);
    qCDebug(lcNetwork) << "Withdrew authorization for" << released->hosts() << "- now"
                       << d->authorizations.size();
    return released;
}

bool AuthorizationRegistry::hasAuthorization(const QUrl &url) const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return d->newestMatch(url) != nullptr;
}

bool AuthorizationRegistry::authorize(QNetworkRequest &request, const QByteArray &verb,
                                      const QByteArray &body) const
{
    // The lock is held while the authorization writes: a concurrent remove() then waits instead
    // of freeing an authorization that is in use.
    std::lock_guard<std::mutex> lock(d->mutex);
    const Authorization *authorization = d->newestMatch(request.url());
    if (!authorization) {
        return false;
    }
    authorization->authorize(request, verb, body);
    qCDebug(lcNetwork) << "Authorized" << verb << "request to" << request.url().host();
    return true;
}

int AuthorizationRegistry::count() const
{
    std::lock_guard<std::mutex> lock(d->mutex);
    return int(d->authorizations.size());
}

HandleDeleter::HandleDeleter()
    : m_registry(AuthorizationRegistry::instance())
{}

HandleDeleter::HandleDeleter(std::shared_ptr<AuthorizationRegistry> registry)
    : m_registry(std::move(registry))
{}

void HandleDeleter::operator()(Authorization *authorization) const
{
    if (!authorization) {
        return;
    }
    if (!m_registry) {
        qCWarning(lcNetwork) << "Handle for" << authorization->hosts()
                             << "has no registry; the authorization is left to its owner";
        return;
    }
    // Only what this registry still holds is deleted here. An authorization that someone else
    // took back with remove() belongs to that caller now; deleting it too would free it twice.
    if (!m_registry->remove(authorization)) {
        qCWarning(lcNetwork) << "Authorization for" << authorization->hosts()
                             << "was not registered; it is left to its owner";
    }
}

} // namespace vn::network

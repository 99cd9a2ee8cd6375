#pragma once

#include <VantroNetwork/authorization.h>

#include <QNetworkRequest>

#include <memory>

namespace vn::network {

class AuthorizationRegistryPrivate;

/// The process-wide set of authorizations that the network layer applies to outgoing requests.
/// Safe to call from any thread.
class VANTRONETWORK_EXPORT AuthorizationRegistry
{
public:
    AuthorizationRegistry();
    ~AuthorizationRegistry();

    /// The process-wide registry.
    static std::shared_ptr<AuthorizationRegistry> instance();

    /// Registers @p authorization and takes ownership of it. Returns it, for a handle to keep.
    Authorization *add(Authorization *authorization);

    /// Withdraws @p authorization and gives ownership back to the caller (nullptr when it was not
    /// registered). HandleDeleter removes and deletes in one step.
    std::unique_ptr<Authorization> remove(Authorization *authorization);

    /// Whether any registered authorization would be written into a request to @p url.
    bool hasAuthorization(const QUrl &url) const;

    /// Lets the newest authorization that matches the request's URL write its header. Returns
    /// whether one did. Runs under the registry's lock, so the authorization cannot be removed
    /// and freed while it writes.
    bool authorize(QNetworkRequest &request, const QByteArray &verb, const QByteArray &body) const;

    int count() const;

private:
    Q_DISABLE_COPY(AuthorizationRegistry)
    std::unique_ptr<AuthorizationRegistryPrivate> const d;
};

/// Deleter for std::unique_ptr<Authorization, HandleDeleter>: removes the authorization from the
/// registry it is bound to, then deletes it. It keeps that registry alive for as long as it exists.
///
/// Only an authorization that the registry still holds is deleted: one that was already taken back
/// with AuthorizationRegistry::remove() belongs to whoever took it, and is left alone.
class VANTRONETWORK_EXPORT HandleDeleter
{
public:
    /// Bound to AuthorizationRegistry::instance(), so that an empty handle that is reset() later
    /// still withdraws from the process-wide registry.
    HandleDeleter();
    explicit HandleDeleter(std::shared_ptr<AuthorizationRegistry> registry);

    void operator()(Authorization *authorization) const;

private:
    std::shared_ptr<AuthorizationRegistry> m_registry;
};

using AuthorizationHandle = std::unique_ptr<Authorization, HandleDeleter>;

} // namespace vn::network

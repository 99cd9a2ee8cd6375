#pragma once

#include <VantroNetwork/vantronetwork_export.h>

#include <QNetworkAccessManager>

namespace vn::network {

/// A QNetworkAccessManager that writes the registered authorization into every request it sends.
///
/// For each request it asks AuthorizationRegistry::instance() for the newest authorization that
/// matches the request's own origin. A redirect never carries a registered credential to an origin
/// that the credential does not match itself: a request that got a credential is not redirected by
/// Qt (its redirect policy becomes ManualRedirectPolicy), so it finishes with the 3xx response and
/// the next hop is sent as a new request through this manager, as vn::Request does.
///
/// A request that already has an Authorization header keeps it and gets nothing from the registry.
class VANTRONETWORK_EXPORT NetworkAccessManager : public QNetworkAccessManager
{
    Q_OBJECT
public:
    explicit NetworkAccessManager(QObject *parent = nullptr);
    ~NetworkAccessManager() override;

    /// The process-wide manager, created on first use. It lives in the application's thread as a
    /// child of the application object.
    static NetworkAccessManager *sharedInstance();

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *outgoingData) override;
};

} // namespace vn::network

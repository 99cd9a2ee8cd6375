#pragma once

#include <VantroNetwork/vantronetwork_export.h>

#include <QNetworkAccessManager>

namespace vn::network {

/// A QNetworkAccessManager that writes the registered authorization into every request it sends.
///
/// For each request, and for each redirect hop, it asks AuthorizationRegistry::instance() for the
/// newest authorization that matches the request's own origin. A redirect never carries a
/// registered credential to an origin that the credential does not match itself.
class VANTRONETWORK_EXPORT NetworkAccessManager : public QNetworkAccessManager
{
    Q_OBJECT
public:
    explicit NetworkAccessManager(QObject *parent = nullptr);
    ~NetworkAccessManager() override;

    /// The process-wide manager, created on first use on the calling thread.
    static NetworkAccessManager *sharedInstance();

protected:
    QNetworkReply *createRequest(Operation operation, const QNetworkRequest &request,
                                 QIODevice *outgoingData) override;
};

} // namespace vn::network

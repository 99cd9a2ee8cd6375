#pragma once

#include <VantroAccount/resource.h>

#include <QNetworkRequest>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn {
class GetRequest;
}

namespace vn::account {

class ServicePrivate;

/// A further web service that the application may use on the account's behalf, from the payload
/// of a "vantro.resource.Service" record: a base URL and a service name.
///
/// Once the application enables it, the service obtains a short-lived access token for itself from
/// the account service, renews it before it runs out, and registers it as the bearer authorization
/// for its own origin (host and port of url()). Every request the application then sends there
/// through the shared network access manager carries the token; the application never touches it.
/// Nothing in the library enables a service by itself.
class VANTROACCOUNT_EXPORT Service : public Resource
{
    Q_OBJECT
    Q_PROPERTY(QUrl url READ url CONSTANT)
    Q_PROPERTY(QString name READ name CONSTANT)
    Q_PROPERTY(bool enabled READ isEnabled NOTIFY enabledChanged)
    // The keys of Status are deliberately not registered: QML sees the plain numbers.
    Q_PROPERTY(int status READ status NOTIFY statusChanged)

public:
    enum Status {
        /// Not enabled; no token is requested.
        Disabled = 0,
        /// Enabled, without a usable token yet (or the one held has run out).
        Pending = 1,
        /// Enabled; a valid token is held and registered for the service's origin.
        Ready = 2,
    };

    /// Reads the payload; does not touch the network.
    Service(const QJsonObject &record, AccountIdentity *chain, QObject *parent);
    /// Withdraws the registered authorization.
    ~Service() override;

    QUrl url() const;
    QString name() const;
    bool isEnabled() const;
    Status status() const;

    /// A request for @p url, resolved against url() when relative. No header is set here: the
    /// token reaches the request through the registered authorization.
    QNetworkRequest createRequest(const QUrl &url) const;
    /// A GET of @p url, resolved against url() when relative, on the account's network access
    /// manager. It has no QObject parent: it is sent when control returns to the event loop and
    /// deletes itself once finished() has been delivered, so connect to finished() right away.
    vn::GetRequest *getRequest(const QUrl &url) const;
    /// A GET of @p request exactly as it is, on the account's network access manager; the request
    /// object behaves as above.
    vn::GetRequest *getRequest(const QNetworkRequest &request) const;

Q_SIGNALS:
    void enabledChanged();
    void statusChanged();

private Q_SLOTS:
    void processResponse();

public Q_SLOTS:
    /// Status Pending and a token request at once; then a check every 5 seconds. A service that
    /// is already enabled is left as it is.
    void enable();
    /// Stops requesting tokens and forgets the token held. The registered authorization stays
    /// until a new token replaces it or the service is destroyed.
    void disable();

protected:
    /// The token check: renews a token with less than five minutes left, retries after failures.
    void timerEvent(QTimerEvent *event) override;

private:
    Q_DISABLE_COPY(Service)
    Q_DECLARE_PRIVATE(Service)
    friend class ServicePrivate;
};

} // namespace vn::account

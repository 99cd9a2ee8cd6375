#pragma once

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/accountidentity.h>
#include <VantroAccount/consumer.h>
#include <VantroAccount/resource.h>
#include <VantroAccount/session.h>
#include <VantroAccount/vantroaccount_export.h>
#include <VantroCrypto/privatekey.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>
#include <QQmlListProperty>
#include <QString>
#include <QUrl>

#include <memory>

namespace vn {
class DeleteRequest;
class GetRequest;
class PatchRequest;
class PostRequest;
class PutRequest;
} // namespace vn

namespace vn::account {

class AbstractAuthenticator;
class AccountInstance;
class Profile;

/// The signed-in account as the application and its QML user interface see it.
///
/// Every Account object of the process is a view onto the same account: a login through one is
/// seen by all. The account lives while at least one Account does; the next one made after the
/// last has gone restores it from the profile again.
///
/// It also makes the requests to the account service: a relative URL is taken below "api/v1/" of
/// the configured service URL, and the service's access token reaches every request to its host
/// without further work.
class VANTROACCOUNT_EXPORT Account : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QUrl serviceUrl READ serviceUrl CONSTANT)
    Q_PROPERTY(QString clientId READ clientId CONSTANT)
    Q_PROPERTY(vn::account::Account::Status status READ status NOTIFY statusChanged)
    Q_PROPERTY(bool online READ isOnline NOTIFY onlineChanged)
    Q_PROPERTY(vn::account::AccountIdentity *identity READ identity NOTIFY identityChanged)
    Q_PROPERTY(vn::account::Consumer *consumer READ consumer NOTIFY consumerChanged)
    Q_PROPERTY(vn::account::Session *session READ session NOTIFY sessionChanged)
    Q_PROPERTY(QQmlListProperty<vn::account::Resource> resources READ resources NOTIFY resourcesChanged)

public:
    enum Status {
        Unknown = 0,
        Disconnected = 1,
        Disconnecting = 2,
        Connecting = 3,
        Connected = 4,
    };
    Q_ENUM(Status)

    enum Error {
        NoError = 0,
        AlreadyLoggedIn = 1,
        AlreadyBusy = 2,
        InvalidLoginData = 3,
        AuthenticationFailed = 4,
        ServiceFailure = 5,
        ServiceUnavailable = 6,
        NotLoggedIn = 7,
    };
    Q_ENUM(Error)

    explicit Account(QObject *parent = nullptr);
    ~Account() override;

    /// Starts a login: status Connecting, then Connected or, with error(), Disconnected. Refused
    /// with error() while connected (AlreadyLoggedIn) or busy (AlreadyBusy); the authenticator
    /// stays the caller's.
    Q_INVOKABLE void login(vn::account::AbstractAuthenticator *auth);
    /// Ends the login; NotLoggedIn unless connected. The account ends Disconnected with its
    /// profile cleared (but for the client's own identity) even when the service cannot be reached.
    Q_INVOKABLE void logout();

    Status status() const;
    bool isOnline() const;
    /// This installation's identifier towards the service: 32 hexadecimal digits, kept in the
    /// profile across logins.
    QString clientId() const;
    /// This installation's own key, kept in the profile across logins.
    vn::crypto::PrivateKey clientKey() const;
    AccessToken accessToken() const;
    QUrl serviceUrl() const;

    /// The account's data; null when there is none. The objects belong to the account and are
    /// replaced (the old one deleted later) when they change.
    AccountIdentity *identity() const;
    Consumer *consumer() const;
    Session *session() const;
    const QList<Resource *> &resourceList() const;
    QQmlListProperty<vn::account::Resource> resources();
    /// The resources whose type is exactly @p type, in list order.
    QList<Resource *> findResources(const QString &type) const;

    /// Fetches the consumer record now, outside the refresh schedule.
    void updateConsumer();
    /// Fetches the resources now, outside the refresh schedule.
    Q_INVOKABLE void updateResources();

    // Requests to the account service. Each is new and has no QObject parent: it is sent when
    // control returns to the event loop and deletes itself once finished() has been delivered, so
    // connect to finished() right after the call. POST, PUT and PATCH send JSON.
    vn::GetRequest *getRequest(const QUrl &url) const;
    vn::PostRequest *postRequest(const QUrl &url, const QJsonObject &body) const;
    /// The array is sent in indented JSON form.
    vn::PostRequest *postRequest(const QUrl &url, const QJsonArray &body) const;
    vn::PutRequest *putRequest(const QUrl &url, const QJsonObject &body) const;
    /// @p headers are set after the JSON content type, in key order; a "Content-Type" among them
    /// replaces it.
    vn::PatchRequest *patchRequest(const QUrl &url, const QJsonArray &body,
                                   QMap<QByteArray, QByteArray> headers) const;
    vn::DeleteRequest *deleteRequest(const QUrl &url) const;

    /// The process's one profile, named by the application object's dynamic property "profile"
    /// ("default" when it is unset or empty). Made on the first call, from any thread.
    static Profile &profile();

Q_SIGNALS:
    void statusChanged();
    void onlineChanged();
    void identityChanged();
    void consumerChanged();
    void resourcesChanged();
    void sessionChanged();
    void error(vn::account::Account::Error error);
    /// The periodic check of the login at the service failed: @p responseCode is its HTTP status,
    /// 0 when the service could not be reached. A 401 has signed the account out by then; any
    /// other failure leaves it connected and offline, and the check runs again later.
    void onlineCheckFailed(int responseCode);

private:
    Q_DISABLE_COPY(Account)
    std::shared_ptr<AccountInstance> const m_instance;
};

} // namespace vn::account

#pragma once

#include <VantroAccount/abstractauthenticator.h>
#include <VantroAccount/accesstoken.h>
#include <VantroAccount/vantroaccount_export.h>

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QList>
#include <QMap>
#include <QObject>

#include <memory>

namespace vn::crypto {
class PrivateKey;
}

namespace vn::account {

class AccountIdentity;
class AccountInstancePrivate;
class Consumer;
class Profile;
class Resource;
class Session;

/// The one signed-in account of the process, shared by every Account object: the client's identity
/// towards the service, the access token, the connection status and the account's data objects
/// (identity chain, session, consumer, resources), which it owns as their QObject parent.
///
/// It restores itself from the profile it is handed when it is made, and while it is connected it
/// keeps its data current by polling the account service. It knows nothing of the Account objects
/// that show it: they follow its signals.
///
/// Internal to the library: exported only in builds with the tests, which reach it; the header is not
/// installed.
class VANTROACCOUNT_AUTOTEST_EXPORT AccountInstance : public QObject
{
    Q_OBJECT

public:
    /// The account's state and failures, with the values of Account::Status and Account::Error,
    /// which give them to the application.
    enum Status {
        Unknown = 0,
        Disconnected = 1,
        Disconnecting = 2,
        Connecting = 3,
        Connected = 4,
    };
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

    /// Registers the resource types that the account service hands out, takes the shared network
    /// access manager and restores the account from @p profile: connected when the profile holds
    /// an access token, disconnected otherwise.
    explicit AccountInstance(Profile &profile, QObject *parent = nullptr);
    ~AccountInstance() override;

    /// The process's account, on the process's profile, shared by everyone who holds it: made on
    /// the first call, gone with the last holder, and restored again by the next call after that.
    static std::shared_ptr<AccountInstance> shared();

    Status status() const;
    bool isOnline() const;
    QString clientId() const;
    vn::crypto::PrivateKey clientKey() const;
    AccessToken accessToken() const;

    /// The account's own identity: the leaf of its verified identity chain, or null when there is
    /// none. Resources are checked against this chain and ranked by it.
    AccountIdentity *identity() const;
    Consumer *consumer() const;
    Session *session() const;
    const QList<Resource *> &resources() const;

    /// Starts a login with @p authenticator, unless the account is connected or busy (error()).
    void login(vn::account::AbstractAuthenticator *authenticator);
    /// Ends the login at the service; locally the account ends signed out whatever it answers.
    void logout();
    /// Fetch the consumer record, or the resources, at once, outside the refresh schedule.
    void updateConsumer();
    void updateResources();

Q_SIGNALS:
    void statusChanged();
    void onlineChanged();
    void identityChanged();
    void consumerChanged();
    void sessionChanged();
    void resourcesChanged();
    void error(vn::account::AccountInstance::Error error);
    void onlineCheckFailed(int responseCode);

public Q_SLOTS:
    void authenticationFinished(vn::account::AbstractAuthenticator::Status status,
                                vn::account::AccessToken accessToken);
    void logoutFinished();
    /// Receives the finished request of every refresh task.
    void handleResponse();
    /// Receive the finished requests of Account::updateConsumer() and Account::updateResources().
    void processConsumerUpdate();
    void processResourcesUpdate();

protected:
    /// The refresh tick: starts every refresh task that is due.
    void timerEvent(QTimerEvent *event) override;

private:
    Q_DISABLE_COPY(AccountInstance)
    friend class AccountInstancePrivate;
    std::unique_ptr<AccountInstancePrivate> const d;
};

} // namespace vn::account

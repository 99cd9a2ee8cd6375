#pragma once

#include <VantroAccount/accesstoken.h>
#include <VantroAccount/vantroaccount_export.h>

#include <QMetaType>
#include <QObject>
#include <QString>

#include <memory>

class QNetworkAccessManager;

namespace vn::account {

class AbstractAuthenticatorPrivate;

/// Turns something that proves who the user is into an access token of the account service.
///
/// The application fills in the inputs of a concrete authenticator and hands it to Account::login().
/// The account gives it the network access manager and the description of this machine, connects
/// finished() and calls start(); every start() ends with exactly one finished().
class VANTROACCOUNT_EXPORT AbstractAuthenticator : public QObject
{
    Q_OBJECT
    Q_PROPERTY(bool persistent READ persistent WRITE setPersistent NOTIFY persistentChanged)

public:
    /// The outcome of a login. The values are fixed: the account logs them and maps them onto
    /// Account::Error.
    enum Status {
        /// The service issued a token.
        Success = 0,
        /// start() was called while a request of this authenticator was still running.
        Busy = 1,
        /// The service rejected the credentials (HTTP 401 or 403).
        AuthenticationFailed = 2,
        /// The inputs are unusable; nothing was sent.
        InvalidLoginData = 3,
        /// No usable answer: no HTTP status, or a status below 400 other than 200.
        ServiceUnavailable = 4,
        /// The service answered with a status of 500 or more.
        ServiceFailure = 5,
        /// Any other status from 400 to 499.
        RequestFailed = 6,
    };

    explicit AbstractAuthenticator(QObject *parent = nullptr);
    ~AbstractAuthenticator() override;

    /// The manager through which requests are sent; not owned.
    void setNetwork(QNetworkAccessManager *network);

    /// The description of this machine that the service keeps with the login. Never filled in here:
    /// the account sets it before start().
    void setHostInfo(const QString &hostInfo);
    QString hostInfo() const;

    /// Whether the service is asked for a login that outlives the application session.
    void setPersistent(bool persistent);
    bool persistent() const;

public Q_SLOTS:
    /// Sends the login to the service. Ends with finished(), at once for Busy and InvalidLoginData.
    virtual void start() = 0;

Q_SIGNALS:
    void persistentChanged();
    /// @p accessToken is empty for every status but Success.
    void finished(vn::account::AbstractAuthenticator::Status status,
                  const vn::account::AccessToken &accessToken);

protected:
    /// For subclasses, whose private data derives from the base's.
    AbstractAuthenticator(AbstractAuthenticatorPrivate &dd, QObject *parent);

    QNetworkAccessManager *network() const;

    /// The outcome of a login that the service answered with HTTP @p code other than 200: 401 and
    /// 403 refuse the login, other 4xx the request, 5xx is the service's failure, and anything
    /// below 400 (0 included: no answer) leaves the service unavailable.
    static Status statusForResponseCode(int code);

    std::unique_ptr<AbstractAuthenticatorPrivate> const d_ptr;

private:
    Q_DISABLE_COPY(AbstractAuthenticator)
    Q_DECLARE_PRIVATE(AbstractAuthenticator)
};

} // namespace vn::account

Q_DECLARE_METATYPE(vn::account::AbstractAuthenticator::Status)

#include "abstractauthenticator.h"
#include "abstractauthenticator_p.h"

#include "accountconfiguration.h"

#include <Vantro/postrequest.h>

#include <QJsonObject>
#include <QNetworkRequest>

namespace vn::account {

vn::PostRequest *AbstractAuthenticatorPrivate::postAuthentication(const QJsonObject &body)
{
    QNetworkRequest request(
        AccountConfiguration::serviceUrl().resolved(QUrl(QStringLiteral("api/v1/authenticate"))));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("application/json"));
    auto *post = new vn::PostRequest(request, network, body, q_ptr);
    post->setSuppressErrors(true);
    return post;
}

AbstractAuthenticator::AbstractAuthenticator(QObject *parent)
    : AbstractAuthenticator(*new AbstractAuthenticatorPrivate(this), parent)
{}

AbstractAuthenticator::AbstractAuthenticator(AbstractAuthenticatorPrivate &dd, QObject *parent)
    : QObject(parent)
    , d_ptr(&dd)
{
    // finished() reaches the account and QML through queued connections and QVariants; both need
    // the argument types by the names the signal is declared with. No authenticator can emit
    // before one is constructed, so this is early enough whatever the order of library loading.
    qRegisterMetaType<vn::account::AbstractAuthenticator::Status>();
    qRegisterMetaType<vn::account::AccessToken>();
}

AbstractAuthenticator::~AbstractAuthenticator() = default;

void AbstractAuthenticator::setNetwork(QNetworkAccessManager *network)
{
    Q_D(AbstractAuthenticator);
    d->network = network;
}

QNetworkAccessManager *AbstractAuthenticator::network() const
{
    Q_D(const AbstractAuthenticator);
    return d->network;
}

void AbstractAuthenticator::setHostInfo(const QString &hostInfo)
{
    Q_D(AbstractAuthenticator);
    d->hostInfo = hostInfo;
}

QString AbstractAuthenticator::hostInfo() const
{
    Q_D(const AbstractAuthenticator);
    return d->hostInfo;
}

void AbstractAuthenticator::setPersistent(bool persistent)
{
    Q_D(AbstractAuthenticator);
    if (d->persistent == persistent) {
        return;
    }
    d->persistent = persistent;
    Q_EMIT persistentChanged();
}

bool AbstractAuthenticator::persistent() const
{
    Q_D(const AbstractAuthenticator);
    return d->persistent;
}

AbstractAuthenticator::Status AbstractAuthenticator::statusForResponseCode(int code)
{
    if (code == 401 || code == 403) {
        return AuthenticationFailed;
    }
    if (code < 400) {
        return ServiceUnavailable;
    }
    if (code >= 500) {
        return ServiceFailure;
    }
    return RequestFailed;
}

} // namespace vn::account

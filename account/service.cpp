#include "service.h"
#include "service_p.h"

#include "accountconfiguration.h"
#include "accountrequests_p.h"
#include "logging_p.h"
#include "timescale_p.h"

#include <VantroNetwork/authorization.h>
#include <VantroNetwork/bearerauthorization.h>

#include <QDateTime>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTimerEvent>

#include <algorithm>

namespace vn::account {

namespace {

// A failure answer is logged whole, but a "token" member in it is a credential all the same.
QJsonValue withoutToken(QJsonValue body)
{
    if (body.isObject() && body.toObject().contains(QLatin1String("token"))) {
        QJsonObject object = body.toObject();
        object.insert(QStringLiteral("token"), QStringLiteral("(withheld)"));
        body = object;
    }
    return body;
}

// The token goes out in a header line, and the network layer sends none with a control character
// in it: a service that took such a token would be Ready with requests that carry nothing.
bool fitsHeader(const QByteArray &token)
{
    return std::none_of(token.cbegin(), token.cend(), [](char c) {
        const auto byte = static_cast<unsigned char>(c);
        return byte < 0x20 || byte == 0x7f;
    });
}

} // namespace

void ServicePrivate::scheduleNext(qint64 milliseconds)
{
    deadline.setRemainingTime(TimeScale::delay(milliseconds), Qt::CoarseTimer);
}

void ServicePrivate::retryLater()
{
    scheduleNext(retryDelay(retryCount));
    ++retryCount;
}

bool ServicePrivate::holdsUsableToken() const
{
    return token.isValid() && claims.valid &&
           (!claims.exp.isValid() || claims.exp > QDateTime::currentDateTime());
}

void ServicePrivate::setStatus(Service::Status newStatus)
{
    Q_Q(Service);
    if (newStatus == status) {
        return;
    }
    status = newStatus;
    // Both, also between Pending and Ready where enabled stays the same: bindings on either follow.
    Q_EMIT q->enabledChanged();
    Q_EMIT q->statusChanged();
}

void ServicePrivate::requestToken()
{
    Q_Q(Service);
    qCDebug(lcAccountService) << "Requesting service token for" << q->uuid() << name << url;
    // Relative to the account service's API, authorised by the account's own token: it is the
    // account that asks for a token on behalf of the service, never the service's own origin.
    const QUrl path(QStringLiteral("./tokens/%1").arg(q->uuid()), QUrl::TolerantMode);
    tokenRequest = AccountRequests::get(path);
    requestPending = true;
    tokenRequest->setSuppressErrors(true);
    QObject::connect(tokenRequest, &vn::Request::finished, q, &Service::processResponse);
}

void ServicePrivate::registerToken()
{
    authorization.reset();
    // The newest registration wins for an origin: a service token for the account service's own
    // origin would take over the account's header there, and its next refresh would sign it out.
    const QString origin = network::Authorization::originHost(url);
    if (origin == network::Authorization::originHost(AccountConfiguration::serviceUrl())) {
        qCWarning(lcAccountService) << "Service" << name << "shares the origin of the account service;"
                                    << "its token is not registered";
        return;
    }
    // Bound to the service's origin: another port of the same host is another service, which gets
    // a token of its own.
    const QStringList hosts{origin};
    const std::shared_ptr<network::AuthorizationRegistry> registry =
        network::AuthorizationRegistry::instance();
    authorization = network::AuthorizationHandle(
        registry->add(new network::BearerAuthorization(hosts, QByteArray(token))),
        network::HandleDeleter(registry));
}

Service::Service(const QJsonObject &record, AccountIdentity *chain, QObject *parent)
    : Resource(*new ServicePrivate(this), record, chain, parent)
{
    Q_D(Service);
    const QJsonObject payload = this->payload().toObject();
    d->url = QUrl(payload.value(QLatin1String("url")).toString(), QUrl::TolerantMode);
    d->name = payload.value(QLatin1String("service")).toString();
}

Service::~Service() = default;

QUrl Service::url() const
{
    Q_D(const Service);
    return d->url;
}

QString Service::name() const
{
    Q_D(const Service);
    return d->name;
}

bool Service::isEnabled() const
{
    Q_D(const Service);
    return d->status != Disabled;
}

Service::Status Service::status() const
{
    Q_D(const Service);
    return d->status;
}

QNetworkRequest Service::createRequest(const QUrl &url) const
{
    Q_D(const Service);
    return QNetworkRequest(url.isRelative() ? d->url.resolved(url) : url);
}

vn::GetRequest *Service::getRequest(const QUrl &url) const
{
    // Never resolved a second time against the account service: a service without a URL of its
    // own must not turn "items" into a request to the account service.
    return AccountRequests::get(createRequest(url));
}

vn::GetRequest *Service::getRequest(const QNetworkRequest &request) const
{
    return AccountRequests::get(request);
}

void Service::enable()
{
    Q_D(Service);
    if (d->status != Disabled) {
        return;
    }
    // The back-off is not reset: a service disabled after failures goes on where it stopped.
    d->requestToken();
    d->timer.start(TimeScale::interval(ServicePrivate::TickInterval), this);
    // Announced last, once the service is in the state it announces: a slot that disables it
    // again finds a request and a timer to stop.
    d->setStatus(Pending);
}

void Service::disable()
{
    Q_D(Service);
    if (d->status == Disabled) {
        return;
    }
    if (d->tokenRequest) {
        disconnect(d->tokenRequest, nullptr, this, nullptr);
    }
    d->tokenRequest = nullptr;
    d->requestPending = false;
    d->token = AccessToken();
    d->claims = JsonWebToken();
    d->timer.stop();
    d->setStatus(Disabled);
}

void Service::processResponse()
{
    Q_D(Service);
    vn::GetRequest *request = d->tokenRequest;
    if (!request || request != sender()) {
        return;
    }
    if (!request->isOk(200)) {
        if (lcAccountService().isCriticalEnabled()) {
            qCCritical(lcAccountService).noquote().nospace()
                << "Failed to retrieve service token for" << uuid() << " with code "
                << request->responseCode() << ": " << withoutToken(request->response());
        }
        d->retryLater();
        d->tokenRequest = nullptr;
        d->requestPending = false;
        return;
    }

    QJsonParseError parseError;
    // JSON of another shape is an answer without a token, tried again later, not a parse failure.
    const QJsonObject answer = request->response(&parseError).toObject();
    if (parseError.error != QJsonParseError::NoError) {
        qCCritical(lcAccountService) << "Failed to parse token response" << parseError.error
                                     << parseError.errorString();
        // The request stays counted as in flight: no further token is requested until the
        // service is disabled and enabled again. A service that answers success with something
        // that is not JSON is not asked again every few seconds.
        d->retryLater();
        return;
    }

    const AccessToken token(answer.value(QLatin1String("token")).toString());
    const JsonWebToken claims{QByteArray(token)};
    d->tokenRequest = nullptr;
    d->requestPending = false;
    if (!token.isValid() || !claims.valid || !fitsHeader(QByteArray(token)) ||
        (claims.exp.isValid() && claims.exp <= QDateTime::currentDateTime())) {
        qCCritical(lcAccountService) << "Successful token request returned invalid token";
        d->retryLater();
        return;
    }

    qCDebug(lcAccountService).noquote() << "Received service access token for" << uuid() << claims;
    d->token = token;
    d->claims = claims;
    d->retryCount = 0;
    d->scheduleNext(ServicePrivate::CheckDelay);
    // Registered before anyone hears of Ready, so that a request made in answer to the signal
    // already carries the new token.
    d->registerToken();
    d->setStatus(Ready);
}

void Service::timerEvent(QTimerEvent *)
{
    Q_D(Service);
    if (d->requestPending || !d->deadline.hasExpired()) {
        return;
    }
    if (d->holdsUsableToken()) {
        // A token without an expiry is never renewed; one is renewed once fewer than five minutes
        // of it remain, while it still works.
        if (!d->claims.exp.isValid() ||
            QDateTime::currentDateTime().secsTo(d->claims.exp) >= ServicePrivate::RenewalMargin) {
            d->scheduleNext(ServicePrivate::CheckDelay);
            return;
        }
        d->requestToken();
        return;
    }
    d->requestToken();
    d->setStatus(Pending);
}

} // namespace vn::account

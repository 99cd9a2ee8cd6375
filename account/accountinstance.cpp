#include "accountinstance.h"
#include "accountinstance_p.h"
#include "accountrequests_p.h"

#include "accountconfiguration.h"
#include "accountidentity.h"
#include "consumer.h"
#include "database.h"
#include "databasecredentials.h"
#include "identitychain_p.h"
#include "logging_p.h"
#include "resource.h"
#include "service.h"
#include "session.h"
#include "timescale_p.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QCoreApplication>
#include <QHostInfo>
#include <QThread>
#include <QTimerEvent>

namespace vn::account {

namespace {

// The types the account service hands out. Registration keeps the first factory for a name, so a
// later instance in the same process registers nothing twice.
void registerResourceTypes()
{
    Resource::registerType<Database>("vantro.resource.Database");
    Resource::registerType<DatabaseCredentials>("vantro.resource.AuthorCredentials");
    Resource::registerType<DatabaseCredentials>("vantro.resource.DeviceCredentials");
    Resource::registerType<Service>("vantro.resource.Service");
}

} // namespace

AccountInstancePrivate::AccountInstancePrivate(AccountInstance *owner, Profile &profile)
    : q(owner)
    , store(profile)
{}

void AccountInstancePrivate::restore()
{
    store.loadClientIdentity(&clientId, &clientKey);
    qCInfo(lcAccount, "Loading profile for client %s", qUtf8Printable(clientId));

    accessToken = store.token();
    if (!accessToken.isValid()) {
        setStatus(AccountInstance::Disconnected);
        return;
    }
    setStatus(AccountInstance::Connected);
    store.setPersistent(true);
    registerAuthorization();

    const QJsonObject sessionInfo = store.session();
    if (!sessionInfo.isEmpty()) {
        session = new Session(sessionInfo, q);
        qCDebug(lcAccount, "Restored session info from profile");
        Q_EMIT q->sessionChanged();
    }
    const QJsonObject consumerInfo = store.consumer();
    if (!consumerInfo.isEmpty()) {
        consumer = new Consumer(consumerInfo, q);
        qCDebug(lcAccount, "Restored consumer info from profile");
        Q_EMIT q->consumerChanged();
    }
    const QJsonArray chain = store.identity();
    if (!chain.isEmpty()) {
        AccountIdentity *restored = AccountIdentity::loadChain(chain, q);
        // The whole chain must hold: a valid last link under a forged one above it proves nothing.
        if (restored && restored->verifyChain()) {
            identity = restored;
            qCDebug(lcAccount, "Restored account identity from profile");
            Q_EMIT q->identityChanged();
        } else {
            discardChain(restored);
        }
    }
    if (resources.merge(store.resources(), identity, q)) {
        Q_EMIT q->resourcesChanged();
    }
}

void AccountInstancePrivate::setStatus(AccountInstance::Status newStatus)
{
    if (newStatus == status) {
        return;
    }
    status = newStatus;
    if (status == AccountInstance::Connected) {
        schedule.start();
    } else if (status == AccountInstance::Disconnected) {
        schedule.stop();
    }
    Q_EMIT q->statusChanged();
}

void AccountInstancePrivate::registerAuthorization()
{
    authorization.reset();
    // Bound to the service's origin: a service on another port of the same host never sees the
    // account's token, nor takes over its header.
    const QStringList hosts{network::Authorization::originHost(AccountConfiguration::serviceUrl())};
    authorization =
        network::AuthorizationHandle(network::AuthorizationRegistry::instance()->add(
                                         new network::BearerAuthorization(hosts, QByteArray(accessToken))),
                                     network::HandleDeleter(network::AuthorizationRegistry::instance()));
}

QString AccountInstancePrivate::hostInfo() const
{
    QString info = QHostInfo::localHostName();
    const QString domain = QHostInfo::localDomainName();
    if (!domain.isEmpty()) {
        info += QLatin1Char('@') + domain;
    }
    return info + QLatin1String(" [") + clientId + QLatin1Char(']');
}

void AccountInstancePrivate::resetAccountData()
{
    if (consumer) {
        consumer->deleteLater();
        consumer = nullptr;
        Q_EMIT q->consumerChanged();
    }
    if (identity) {
        discardChain(identity);
        identity = nullptr;
        Q_EMIT q->identityChanged();
    }
    if (session) {
        session->deleteLater();
        session = nullptr;
        Q_EMIT q->sessionChanged();
    }
    if (resources.clear()) {
        Q_EMIT q->resourcesChanged();
    }
    if (online) {
        online = false;
        Q_EMIT q->onlineChanged();
    }
}

void AccountInstancePrivate::signOut()
{
    // Whatever the service thinks, the token is of no further use here: it is neither kept nor sent
    // again, and answers still under way for it are not applied.
    schedule.forget();
    accessToken = AccessToken();
    authorization.reset();
    setStatus(AccountInstance::Disconnected);
    resetAccountData();
    store.wipe();
}

void AccountInstancePrivate::replaceIdentity(AccountIdentity *chain)
{
    if (chain == identity) {
        return;
    }
    discardChain(identity);
    identity = chain;
    Q_EMIT q->identityChanged();
}

void AccountInstancePrivate::discardChain(AccountIdentity *chain)
{
    // Every link was made for this chain alone (root included), so all of them go. Deferred, since
    // resources and bindings may still be looking at the old chain while this signal is delivered.
    for (Identity *link : chainLinks(chain)) {
        link->deleteLater();
    }
}

AccountInstance::AccountInstance(Profile &profile, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<AccountInstancePrivate>(this, profile))
{
    registerResourceTypes();
    d->network = network::NetworkAccessManager::sharedInstance();
    d->restore();
    d->buildTasks();
}

AccountInstance::~AccountInstance() = default;

std::shared_ptr<AccountInstance> AccountInstance::shared()
{
    // Only touched on the main thread, like the account itself.
    static std::weak_ptr<AccountInstance> s_instance;
    std::shared_ptr<AccountInstance> instance = s_instance.lock();
    if (!instance) {
        instance = std::shared_ptr<AccountInstance>(
            new AccountInstance(AccountStore::processProfile()), [](AccountInstance *gone) {
                // The last holder may well go from a slot that the instance's own signal is running (a
                // view closed on a status change), so inside the event loop the instance goes once
                // control returns there. Outside it (the end of main(), a test body) nothing would ever
                // get to a deferred deletion, and the instance goes at once.
                if (QCoreApplication::instance() && gone->thread()->loopLevel() > 0) {
                    gone->deleteLater();
                } else {
                    delete gone;
                }
            });
        s_instance = instance;
    }
    return instance;
}

AccountInstance::Status AccountInstance::status() const
{
    return d->status;
}

bool AccountInstance::isOnline() const
{
    return d->online;
}

QString AccountInstance::clientId() const
{
    return d->clientId;
}

crypto::PrivateKey AccountInstance::clientKey() const
{
    return d->clientKey;
}

AccessToken AccountInstance::accessToken() const
{
    return d->accessToken;
}

AccountIdentity *AccountInstance::identity() const
{
    return d->identity;
}

Consumer *AccountInstance::consumer() const
{
    return d->consumer;
}

Session *AccountInstance::session() const
{
    return d->session;
}

const QList<Resource *> &AccountInstance::resources() const
{
    return d->resources.resources();
}

void AccountInstance::login(AbstractAuthenticator *authenticator)
{
    if (d->status == AccountInstance::Disconnecting || d->status == AccountInstance::Connecting) {
        Q_EMIT error(AccountInstance::AlreadyBusy);
        return;
    }
    if (d->status == AccountInstance::Connected) {
        Q_EMIT error(AccountInstance::AlreadyLoggedIn);
        return;
    }
    if (!authenticator) {
        Q_EMIT error(AccountInstance::InvalidLoginData);
        return;
    }
    d->setStatus(AccountInstance::Connecting);
    d->authenticator = authenticator;
    authenticator->setNetwork(d->network);
    authenticator->setHostInfo(d->hostInfo());
    connect(authenticator, &AbstractAuthenticator::finished, this, &AccountInstance::authenticationFinished);
    // An authenticator deleted before it finished would leave the account connecting for good, and
    // every later login refused as busy.
    connect(authenticator, &QObject::destroyed, this, [this] {
        if (d->status == AccountInstance::Connecting) {
            qCWarning(lcAccount, "Login abandoned: the authenticator was deleted before it finished");
            d->setStatus(AccountInstance::Disconnected);
        }
    });
    authenticator->start();
}

void AccountInstance::authenticationFinished(AbstractAuthenticator::Status status, AccessToken accessToken)
{
    d->accessToken = accessToken;
    d->authorization.reset();

    if (status == AbstractAuthenticator::Success && !accessToken.isValid()) {
        // A service that says yes without a token it can be asked with (an answer cut short, not
        // JSON, of the wrong shape) has not signed anybody in: connecting would only end at the
        // first online check, which has no token to show.
        d->setStatus(AccountInstance::Disconnected);
        qCCritical(lcAccount, "Authentication failed: the service answered without a usable token");
        Q_EMIT error(AccountInstance::AuthenticationFailed);
    } else if (status != AbstractAuthenticator::Success) {
        d->setStatus(AccountInstance::Disconnected);
        qCCritical(lcAccount, "Authentication failed with status %d", int(status));
        switch (status) {
        case AbstractAuthenticator::Busy:
            Q_EMIT error(AccountInstance::AlreadyBusy);
            break;
        case AbstractAuthenticator::AuthenticationFailed:
        case AbstractAuthenticator::RequestFailed:
            Q_EMIT error(AccountInstance::AuthenticationFailed);
            break;
        case AbstractAuthenticator::InvalidLoginData:
            Q_EMIT error(AccountInstance::InvalidLoginData);
            break;
        case AbstractAuthenticator::ServiceUnavailable:
            Q_EMIT error(AccountInstance::ServiceUnavailable);
            break;
        case AbstractAuthenticator::ServiceFailure:
            Q_EMIT error(AccountInstance::ServiceFailure);
            break;
        default:
            break;
        }
    } else {
        d->registerAuthorization();
        d->store.setPersistent(d->authenticator && d->authenticator->persistent());
        d->store.saveToken(d->accessToken);
        d->setStatus(AccountInstance::Connected);
        d->online = true;
        Q_EMIT onlineChanged();
    }

    if (d->authenticator) {
        disconnect(d->authenticator, nullptr, this, nullptr);
    }
    d->authenticator = nullptr;
}

void AccountInstance::logout()
{
    if (d->status != AccountInstance::Connected) {
        Q_EMIT error(AccountInstance::NotLoggedIn);
        return;
    }
    d->setStatus(AccountInstance::Disconnecting);
    DeleteRequest *request = AccountRequests::remove(QUrl(QStringLiteral("logins/current")));
    request->setSuppressErrors(true);
    connect(request, &Request::finished, this, &AccountInstance::logoutFinished);
}

void AccountInstance::logoutFinished()
{
    const auto *request = qobject_cast<Request *>(sender());
    const int code = request ? request->responseCode() : 0;
    if (code == 0) {
        qCCritical(lcAccount, "Logout failed - service unavailable");
        Q_EMIT error(AccountInstance::ServiceUnavailable);
    } else if (code != 200) {
        qCCritical(lcAccount, "Logout failed with server error code %d", code);
        Q_EMIT error(AccountInstance::ServiceFailure);
    }
    d->signOut();
}

void AccountInstance::updateConsumer()
{
    GetRequest *request = AccountRequests::get(QUrl(QStringLiteral("consumer")));
    request->setSuppressErrors(true);
    d->schedule.tag(request);
    connect(request, &Request::finished, this, &AccountInstance::processConsumerUpdate);
}

void AccountInstance::updateResources()
{
    GetRequest *request = AccountRequests::get(QUrl(QStringLiteral("entitled")));
    request->setSuppressErrors(true);
    d->schedule.tag(request);
    connect(request, &Request::finished, this, &AccountInstance::processResourcesUpdate);
}

void AccountInstance::handleResponse()
{
    if (auto *request = qobject_cast<Request *>(sender())) {
        d->schedule.finish(request);
    }
}

void AccountInstance::processConsumerUpdate()
{
    auto *request = qobject_cast<Request *>(sender());
    if (request && d->schedule.isCurrent(request)) {
        d->updateConsumer(request);
    }
}

void AccountInstance::processResourcesUpdate()
{
    auto *request = qobject_cast<Request *>(sender());
    if (request && d->schedule.isCurrent(request)) {
        d->updateResources(request);
    }
}

void AccountInstance::timerEvent(QTimerEvent *)
{
    // Most ticks of a connected account find nothing due: they cost a clock read.
    const qint64 now = TimeScale::now();
    if (!d->schedule.isDue(now)) {
        return;
    }
    d->schedule.run(now, [this](const QUrl &path) {
        GetRequest *request = AccountRequests::get(path);
        connect(request, &Request::finished, this, &AccountInstance::handleResponse);
        return request;
    });
}

} // namespace vn::account

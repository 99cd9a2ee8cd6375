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
#include "profile.h"
#include "resource.h"
#include "service.h"
#include "session.h"
#include "timescale_p.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/networkaccessmanager.h>

#include <QCoreApplication>
#include <QHash>
#include <QHostInfo>
#include <QJsonDocument>
#include <QMetaEnum>
#include <QNetworkRequest>
#include <QSet>
#include <QThread>
#include <QTimerEvent>
#include <QUuid>

#include <limits>

namespace vn::account {

namespace {

const char TaskIndexProperty[] = "taskIndex";
const char GenerationProperty[] = "vantroAccountGeneration";

// The types the account service hands out. Registration keeps the first factory for a name, so a
// later instance in the same process registers nothing twice.
void registerResourceTypes()
{
    Resource::registerType<Database>("vantro.resource.Database");
    Resource::registerType<DatabaseCredentials>("vantro.resource.AuthorCredentials");
    Resource::registerType<DatabaseCredentials>("vantro.resource.DeviceCredentials");
    Resource::registerType<Service>("vantro.resource.Service");
}

const char *networkErrorName(QNetworkReply::NetworkError error)
{
    const char *name = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error);
    return name ? name : "UnknownNetworkError";
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
    const QJsonArray records = store.resources();
    if (!records.isEmpty()) {
        mergeResources(records);
    }
}

void AccountInstancePrivate::buildTasks()
{
    const auto connected = [this] { return status == AccountInstance::Connected; };
    const auto connectedOnline = [this] { return status == AccountInstance::Connected && online; };
    const auto withIdentity = [this] { return status == AccountInstance::Connected && online && identity; };

    tasks.resize(4);
    tasks[0].path = QUrl(QStringLiteral("logins/current"));
    tasks[0].condition = connected;
    tasks[0].handler = [this](Request *request) { return checkOnline(request); };
    tasks[1].path = QUrl(QStringLiteral("consumer"));
    tasks[1].condition = connectedOnline;
    tasks[1].handler = [this](Request *request) { return updateConsumer(request); };
    tasks[2].path = QUrl(QStringLiteral("account/identity"));
    tasks[2].condition = connectedOnline;
    tasks[2].handler = [this](Request *request) { return updateIdentity(request); };
    tasks[3].path = QUrl(QStringLiteral("entitled"));
    tasks[3].condition = withIdentity;
    tasks[3].handler = [this](Request *request) { return updateResources(request); };
}

void AccountInstancePrivate::updateNextDue()
{
    nextDue = std::numeric_limits<qint64>::max();
    for (const RefreshTask &task : tasks) {
        if (!task.busy) {
            nextDue = qMin(nextDue, task.due);
        }
    }
}

void AccountInstancePrivate::setStatus(AccountInstance::Status newStatus)
{
    if (newStatus == status) {
        return;
    }
    status = newStatus;
    if (status == AccountInstance::Connected) {
        for (RefreshTask &task : tasks) {
            task.due = 0;
        }
        nextDue = 0;
        if (timerId == 0) {
            timerId = q->startTimer(TimeScale::interval(TickInterval), Qt::CoarseTimer);
        }
    } else if (status == AccountInstance::Disconnected && timerId != 0) {
        q->killTimer(timerId);
        timerId = 0;
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
    if (!resources.isEmpty()) {
        for (Resource *resource : qAsConst(resources)) {
            resource->deleteLater();
        }
        resources.clear();
        resourceSignatures.clear();
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
    ++generation;
    accessToken = AccessToken();
    authorization.reset();
    setStatus(AccountInstance::Disconnected);
    resetAccountData();
    store.wipe();
    mergedResources.clear();
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

void AccountInstancePrivate::tag(Request *request) const
{
    request->setProperty(GenerationProperty, generation);
}

bool AccountInstancePrivate::isCurrent(const Request *request) const
{
    return request->property(GenerationProperty).toInt() == generation;
}

qint64 AccountInstancePrivate::checkOnline(Request *request)
{
    const bool wasOnline = online;
    if (request->isOk(200)) {
        online = true;
        QJsonParseError parseError;
        const QJsonObject sessionInfo = request->responseObject(&parseError);
        if (parseError.error != QJsonParseError::NoError) {
            qCCritical(lcAccount, "Failed to parse session data %d %s", int(parseError.error),
                       qUtf8Printable(parseError.errorString()));
            return RetryDelay;
        }
        if (!session) {
            session = new Session(sessionInfo, q);
            Q_EMIT q->sessionChanged();
        }
        store.saveSession(sessionInfo);
    } else {
        online = false;
        const int code = request->responseCode();
        if (code == 401) {
            qCInfo(lcAccount, "Current session expired or revoked - disconnecting");
            signOut();
        } else if (code >= 500) {
            qCCritical(lcAccount, "Online check failed with server error status %d", code);
        } else if (code >= 400) {
            qCCritical(lcAccount, "Online check failed with client error status %d", code);
        }
    }
    if (online != wasOnline) {
        qCInfo(lcAccount, "Switching account online status to %s", online ? "true" : "false");
        Q_EMIT q->onlineChanged();
    }
    if (!online) {
        Q_EMIT q->onlineCheckFailed(request->responseCode());
    }
    return OnlineCheckDelay;
}

qint64 AccountInstancePrivate::updateConsumer(Request *request)
{
    if (!request->isOk(200)) {
        qCCritical(lcAccount, "Consumer update failed with status %d error %s", request->responseCode(),
                   networkErrorName(request->error()));
        return RetryDelay;
    }
    QJsonParseError parseError;
    const QJsonObject consumerInfo = request->responseObject(&parseError);
    if (parseError.error != QJsonParseError::NoError) {
        qCCritical(lcAccount, "Failed to parse account identity %d %s", int(parseError.error),
                   qUtf8Printable(parseError.errorString()));
        return RetryDelay;
    }
    // A record for the same consumer replaces the object; a record with another identifier updates
    // the present object in place. Applications rely on exactly this behaviour.
    const QString id = consumerInfo.value(QLatin1String("id")).toString();
    if (!consumer || consumer->identifier() == id) {
        if (consumer) {
            consumer->deleteLater();
        }
        consumer = new Consumer(consumerInfo, q);
        Q_EMIT q->consumerChanged();
    } else {
        consumer->update(consumerInfo);
    }
    store.saveConsumer(consumerInfo);
    return ConsumerDelay;
}

qint64 AccountInstancePrivate::updateIdentity(Request *request)
{
    if (!request->isOk(200)) {
        qCCritical(lcAccount, "Identity update failed with status %d error %s", request->responseCode(),
                   networkErrorName(request->error()));
        return RetryDelay;
    }
    QJsonParseError parseError;
    const QJsonArray chain = request->responseArray(&parseError);
    if (parseError.error != QJsonParseError::NoError) {
        qCCritical(lcAccount, "Failed to parse account identity %d %s", int(parseError.error),
                   qUtf8Printable(parseError.errorString()));
        return RetryDelay;
    }

    if (identity) {
        QStringList offered;
        offered.reserve(chain.size());
        for (const QJsonValue &link : chain) {
            offered.append(link.toObject().value(QLatin1String("signature")).toString());
        }
        // The root heads every chain but is not part of what the service sends: it has no signature.
        QStringList present;
        for (const Identity *link : chainLinks(identity)) {
            if (link->parent()) {
                present.prepend(link->signature());
            }
        }
        if (offered != present) {
            discardChain(identity);
            identity = nullptr;
        }
    }
    if (!identity) {
        store.saveIdentity(chain);
        AccountIdentity *loaded = AccountIdentity::loadChain(chain, q);
        if (loaded && loaded->verifyChain()) {
            identity = loaded;
        } else {
            discardChain(loaded);
        }
        Q_EMIT q->identityChanged();
    }
    return IdentityDelay;
}

qint64 AccountInstancePrivate::updateResources(Request *request)
{
    if (!request->isOk(200)) {
        qCCritical(lcAccount, "Resource update failed with status %d error %s", request->responseCode(),
                   networkErrorName(request->error()));
        return RetryDelay;
    }
    // The same answer as last time keeps every object as it is and is already in the profile: a
    // list of a thousand resources is not parsed, compared and synced to disk again for nothing.
    const QByteArray body = request->rawResponse();
    if (body == mergedResources) {
        return ResourcesDelay;
    }
    QJsonParseError parseError;
    const QJsonArray records = request->responseArray(&parseError);
    if (parseError.error != QJsonParseError::NoError) {
        qCCritical(lcAccount, "Failed to parse resources %d %s", int(parseError.error),
                   qUtf8Printable(parseError.errorString()));
        return RetryDelay;
    }
    mergeResources(records);
    // A write that failed leaves the answer unremembered, so that the next one writes it again.
    mergedResources = store.saveResources(records) ? body : QByteArray();
    return ResourcesDelay;
}

void AccountInstancePrivate::mergeResources(const QJsonArray &records)
{
    QHash<QString, Resource *> present;
    present.reserve(resources.size());
    for (int index = 0; index < resources.size(); ++index) {
        present.insert(resourceSignatures.at(index), resources.at(index));
    }

    QList<Resource *> kept;
    QStringList keptSignatures;
    kept.reserve(records.size());
    keptSignatures.reserve(records.size());
    QSet<Resource *> reused;
    for (const QJsonValue &value : records) {
        const QJsonObject record = value.toObject();
        const QString signature = record.value(QLatin1String("signature")).toString();
        Resource *resource = present.value(signature);
        if (resource) {
            reused.insert(resource);
        } else {
            resource = Resource::create(record, identity, q);
            if (!resource->isValid()) {
                // Nothing has seen it yet, and an invalid credential must not stay registered.
                delete resource;
                continue;
            }
        }
        kept.append(resource);
        keptSignatures.append(signature);
    }

    if (kept == resources) {
        return;
    }
    for (Resource *resource : qAsConst(resources)) {
        if (!reused.contains(resource)) {
            resource->deleteLater();
        }
    }
    resources = kept;
    resourceSignatures = keptSignatures;
    Q_EMIT q->resourcesChanged();
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

QNetworkAccessManager *AccountInstance::network() const
{
    return d->network;
}

AccountIdentity *AccountInstance::identity() const
{
    return d->identity;
}

void AccountInstance::setIdentity(AccountIdentity *identity)
{
    d->replaceIdentity(identity);
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
    return d->resources;
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

    if (status != AbstractAuthenticator::Success) {
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
        // A success without a token connects all the same, with nothing to register or keep.
        if (d->accessToken.isValid()) {
            d->registerAuthorization();
            d->store.setPersistent(d->authenticator && d->authenticator->persistent());
            d->store.saveToken(d->accessToken);
        }
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
    d->tag(request);
    connect(request, &Request::finished, this, &AccountInstance::processConsumerUpdate);
}

void AccountInstance::updateResources()
{
    GetRequest *request = AccountRequests::get(QUrl(QStringLiteral("entitled")));
    request->setSuppressErrors(true);
    d->tag(request);
    connect(request, &Request::finished, this, &AccountInstance::processResourcesUpdate);
}

void AccountInstance::handleResponse()
{
    auto *request = qobject_cast<Request *>(sender());
    if (!request) {
        return;
    }
    const int index = request->property(TaskIndexProperty).toInt();
    if (index < 0 || index >= int(d->tasks.size())) {
        return;
    }
    const qint64 delay = d->isCurrent(request) ? d->tasks[index].handler(request) : 0;
    RefreshTask &task = d->tasks[index];
    task.due = TimeScale::now() + TimeScale::delay(delay);
    task.busy = false;
    d->updateNextDue();
}

void AccountInstance::processConsumerUpdate()
{
    auto *request = qobject_cast<Request *>(sender());
    if (request && d->isCurrent(request)) {
        d->updateConsumer(request);
    }
}

void AccountInstance::processResourcesUpdate()
{
    auto *request = qobject_cast<Request *>(sender());
    if (request && d->isCurrent(request)) {
        d->updateResources(request);
    }
}

void AccountInstance::timerEvent(QTimerEvent *)
{
    // Most ticks of a connected account find nothing due: they cost a clock read.
    const qint64 now = TimeScale::now();
    if (now <= d->nextDue) {
        return;
    }
    for (int index = 0; index < int(d->tasks.size()); ++index) {
        RefreshTask &task = d->tasks[index];
        if (task.busy || !(task.due < now) || !task.condition()) {
            continue;
        }
        task.busy = true;
        GetRequest *request = AccountRequests::get(task.path);
        request->setProperty(TaskIndexProperty, index);
        d->tag(request);
        connect(request, &Request::finished, this, &AccountInstance::handleResponse);
    }
    d->updateNextDue();
}

} // namespace vn::account

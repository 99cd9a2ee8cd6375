// The refresh of a connected account: the tasks of its schedule and what their answers do to the
// account. Part of AccountInstancePrivate, whose life cycle (restore, login, logout, sign-out) is in
// accountinstance.cpp; kept apart so that each file reads as one concern.

#include "accountinstance_p.h"

#include "accountidentity.h"
#include "consumer.h"
#include "identitychain_p.h"
#include "logging_p.h"
#include "session.h"

#include <Vantro/request.h>

#include <QJsonParseError>
#include <QMetaEnum>

#include <type_traits>

namespace vn::account {

namespace {

const char *networkErrorName(QNetworkReply::NetworkError error)
{
    const char *name = QMetaEnum::fromType<QNetworkReply::NetworkError>().valueToKey(error);
    return name ? name : "UnknownNetworkError";
}

// Whether the service answered a refresh of @p what with 200; otherwise one critical line.
bool answered(Request *request, const char *what)
{
    if (request->isOk(200)) {
        return true;
    }
    qCCritical(lcAccount, "%s update failed with status %d error %s", what, request->responseCode(),
               networkErrorName(request->error()));
    return false;
}

// Reads the answer into @p answer (an object or an array); on a parse failure one critical line
// that names it as @p what.
template<class Json>
bool parsed(Request *request, const char *what, Json *answer)
{
    QJsonParseError error;
    if constexpr (std::is_same_v<Json, QJsonArray>) {
        *answer = request->responseArray(&error);
    } else {
        *answer = request->responseObject(&error);
    }
    if (error.error != QJsonParseError::NoError) {
        qCCritical(lcAccount, "Failed to parse %s %d %s", what, int(error.error),
                   qUtf8Printable(error.errorString()));
        return false;
    }
    return true;
}

} // namespace

void AccountInstancePrivate::buildTasks()
{
    const auto connected = [this] { return status == AccountInstance::Connected; };
    const auto connectedOnline = [this] { return status == AccountInstance::Connected && online; };
    const auto withIdentity = [this] { return status == AccountInstance::Connected && online && identity; };
    schedule.addTask(QUrl(QStringLiteral("logins/current")), connected,
                     [this](Request *request) { return checkOnline(request); });
    schedule.addTask(QUrl(QStringLiteral("consumer")), connectedOnline,
                     [this](Request *request) { return updateConsumer(request); });
    schedule.addTask(QUrl(QStringLiteral("account/identity")), connectedOnline,
                     [this](Request *request) { return updateIdentity(request); });
    schedule.addTask(QUrl(QStringLiteral("entitled")), withIdentity,
                     [this](Request *request) { return updateResources(request); });
}

qint64 AccountInstancePrivate::checkOnline(Request *request)
{
    const bool wasOnline = online;
    if (request->isOk(200)) {
        online = true;
        QJsonObject sessionInfo;
        if (!parsed(request, "session data", &sessionInfo)) {
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
    // The consumer's parse failure has always been reported in the words of the identity's.
    QJsonObject consumerInfo;
    if (!answered(request, "Consumer") || !parsed(request, "account identity", &consumerInfo)) {
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
    QJsonArray chain;
    if (!answered(request, "Identity") || !parsed(request, "account identity", &chain)) {
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
    if (!answered(request, "Resource")) {
        return RetryDelay;
    }
    // The same answer as last time keeps every object as it is and is already in the profile: a
    // list of a thousand resources is not parsed, compared and synced to disk again for nothing.
    const QByteArray body = request->rawResponse();
    if (resources.isFrom(body)) {
        return ResourcesDelay;
    }
    QJsonArray records;
    if (!parsed(request, "resources", &records)) {
        return RetryDelay;
    }
    if (resources.merge(records, identity, q)) {
        Q_EMIT q->resourcesChanged();
    }
    // A write that failed leaves the answer unremembered, so that the next one writes it again.
    resources.setBody(store.saveResources(records) ? body : QByteArray());
    return ResourcesDelay;
}

} // namespace vn::account

#pragma once

#include "abstractauthenticator.h"
#include "accesstoken.h"
#include "accountinstance.h"
#include "accountstore_p.h"

#include <VantroCrypto/privatekey.h>
#include <VantroNetwork/authorizationregistry.h>

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QPointer>
#include <QString>
#include <QStringList>
#include <QUrl>

#include <functional>
#include <vector>

class QNetworkAccessManager;

namespace vn {
class Request;
}

namespace vn::account {

class AccountIdentity;
class AccountInstance;
class Consumer;
class Resource;
class Session;

/// One periodic refresh: a GET of a service path that runs when it is due and its condition holds.
struct RefreshTask
{
    /// Milliseconds since the epoch at which it may run again; 0 runs it at the next tick.
    qint64 due = 0;
    QUrl path;
    bool busy = false;
    /// Reads the finished request and returns the milliseconds until the next run.
    std::function<qint64(Request *)> handler;
    std::function<bool()> condition;
};

class AccountInstancePrivate
{
public:
    // What the refresh tasks wait for, in milliseconds on the time-scaled clock.
    static constexpr int TickInterval = 200;
    static constexpr qint64 RetryDelay = 5000;
    static constexpr qint64 OnlineCheckDelay = 30000;
    static constexpr qint64 ConsumerDelay = 600000;
    static constexpr qint64 IdentityDelay = 1500000;
    static constexpr qint64 ResourcesDelay = 900000;

    AccountInstancePrivate(AccountInstance *owner, Profile &profile);

    void restore();
    void buildTasks();
    void updateNextDue();
    void setStatus(AccountInstance::Status newStatus);
    /// Registers the access token as bearer authorization for the service host, replacing any.
    void registerAuthorization();
    QString hostInfo() const;

    /// Drops consumer, identity, session and resources, then the online flag, each with its signal.
    void resetAccountData();
    /// The local half of every sign-out: status, token and authorization, data, profile.
    void signOut();

    /// Makes @p chain (verified or not) the identity, scheduling the old chain for deletion.
    void replaceIdentity(AccountIdentity *chain);
    static void discardChain(AccountIdentity *chain);

    // The handlers of the refresh tasks; each returns the delay until its task runs again.
    qint64 checkOnline(Request *request);
    qint64 updateConsumer(Request *request);
    qint64 updateIdentity(Request *request);
    qint64 updateResources(Request *request);
    /// Makes the resource list follow @p records: unchanged records keep their objects, new ones
    /// are built and kept only when valid.
    void mergeResources(const QJsonArray &records);
    /// Marks @p request as one of the current login; answers to an ended login are not applied.
    void tag(Request *request) const;
    bool isCurrent(const Request *request) const;

    AccountInstance *const q;
    AccountStore store;
    QString clientId;
    crypto::PrivateKey clientKey;
    AccessToken accessToken;
    AccountInstance::Status status = AccountInstance::Unknown;
    bool online = false;
    AccountIdentity *identity = nullptr;
    Consumer *consumer = nullptr;
    Session *session = nullptr;
    QList<Resource *> resources;
    /// The "signature" text of each resource, in the order of resources: the merge's index.
    QStringList resourceSignatures;
    int timerId = 0;
    std::vector<RefreshTask> tasks;
    QNetworkAccessManager *network = nullptr;
    network::AuthorizationHandle authorization;
    QPointer<AbstractAuthenticator> authenticator;
    /// The last resource answer that was merged (and, when persistent, written to the profile): the
    /// same answer again changes nothing and is neither parsed nor written again.
    QByteArray mergedResources;
    /// The earliest time at which a refresh task that is not running may come due: ticks before it
    /// have nothing to do.
    qint64 nextDue = 0;
    /// Counts local sign-outs, so that answers to requests of an ended login are not applied.
    int generation = 0;
};

} // namespace vn::account

#pragma once

#include "abstractauthenticator.h"
#include "accesstoken.h"
#include "accountinstance.h"
#include "accountstore_p.h"
#include "refreshschedule_p.h"
#include "resourcelist_p.h"

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

class AccountInstancePrivate
{
public:
    // What the refresh tasks wait for, in milliseconds on the time-scaled clock.
    static constexpr qint64 RetryDelay = 5000;
    static constexpr qint64 OnlineCheckDelay = 30000;
    static constexpr qint64 ConsumerDelay = 600000;
    static constexpr qint64 IdentityDelay = 1500000;
    static constexpr qint64 ResourcesDelay = 900000;

    AccountInstancePrivate(AccountInstance *owner, Profile &profile);
    static AccountInstancePrivate *get(AccountInstance *instance) { return instance->d.get(); }

    void restore();
    void buildTasks();
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
    ResourceList resources;
    RefreshSchedule schedule{q};
    QNetworkAccessManager *network = nullptr;
    network::AuthorizationHandle authorization;
    QPointer<AbstractAuthenticator> authenticator;
};

} // namespace vn::account

#include "account.h"

#include "accountconfiguration.h"
#include "accountinstance.h"
#include "accountrequests_p.h"
#include "accountstore_p.h"
#include "profile.h"

#include <Vantro/deleterequest.h>
#include <Vantro/getrequest.h>
#include <Vantro/patchrequest.h>
#include <Vantro/postrequest.h>
#include <Vantro/putrequest.h>

#include <QCoreApplication>
#include <QThread>
#include <QVariant>

namespace vn::account {

// The instance keeps the account's state under its own names, so that it never depends on the
// facade; the values are the facade's.
static_assert(int(Account::Unknown) == AccountInstance::Unknown &&
              int(Account::Disconnected) == AccountInstance::Disconnected &&
              int(Account::Disconnecting) == AccountInstance::Disconnecting &&
              int(Account::Connecting) == AccountInstance::Connecting &&
              int(Account::Connected) == AccountInstance::Connected);
static_assert(int(Account::NoError) == AccountInstance::NoError &&
              int(Account::AlreadyLoggedIn) == AccountInstance::AlreadyLoggedIn &&
              int(Account::AlreadyBusy) == AccountInstance::AlreadyBusy &&
              int(Account::InvalidLoginData) == AccountInstance::InvalidLoginData &&
              int(Account::AuthenticationFailed) == AccountInstance::AuthenticationFailed &&
              int(Account::ServiceFailure) == AccountInstance::ServiceFailure &&
              int(Account::ServiceUnavailable) == AccountInstance::ServiceUnavailable &&
              int(Account::NotLoggedIn) == AccountInstance::NotLoggedIn);

namespace {

int resourceCount(QQmlListProperty<Resource> *list)
{
    return static_cast<const QList<Resource *> *>(list->data)->size();
}

Resource *resourceAt(QQmlListProperty<Resource> *list, int index)
{
    return static_cast<const QList<Resource *> *>(list->data)->value(index);
}

} // namespace

Account::Account(QObject *parent)
    : QObject(parent)
    , m_instance(AccountInstance::shared())
{
    AccountInstance *instance = m_instance.get();
    connect(instance, &AccountInstance::statusChanged, this, &Account::statusChanged);
    connect(instance, &AccountInstance::onlineChanged, this, &Account::onlineChanged);
    connect(instance, &AccountInstance::identityChanged, this, &Account::identityChanged);
    connect(instance, &AccountInstance::consumerChanged, this, &Account::consumerChanged);
    connect(instance, &AccountInstance::sessionChanged, this, &Account::sessionChanged);
    connect(instance, &AccountInstance::resourcesChanged, this, &Account::resourcesChanged);
    connect(instance, &AccountInstance::error, this,
            [this](AccountInstance::Error failure) { Q_EMIT error(Account::Error(failure)); });
    connect(instance, &AccountInstance::onlineCheckFailed, this, &Account::onlineCheckFailed);
}

Account::~Account() = default;

void Account::login(AbstractAuthenticator *auth)
{
    m_instance->login(auth);
}

void Account::logout()
{
    m_instance->logout();
}

Account::Status Account::status() const
{
    return Account::Status(m_instance->status());
}

bool Account::isOnline() const
{
    return m_instance->isOnline();
}

QString Account::clientId() const
{
    return m_instance->clientId();
}

crypto::PrivateKey Account::clientKey() const
{
    return m_instance->clientKey();
}

AccessToken Account::accessToken() const
{
    return m_instance->accessToken();
}

QUrl Account::serviceUrl() const
{
    return AccountConfiguration::serviceUrl();
}

AccountIdentity *Account::identity() const
{
    return m_instance->identity();
}

Consumer *Account::consumer() const
{
    return m_instance->consumer();
}

Session *Account::session() const
{
    return m_instance->session();
}

const QList<Resource *> &Account::resourceList() const
{
    return m_instance->resources();
}

QQmlListProperty<Resource> Account::resources()
{
    // Read-only: the list belongs to the instance, which outlives this property value's owner.
    auto *list = const_cast<QList<Resource *> *>(&m_instance->resources());
    return QQmlListProperty<Resource>(this, list, &resourceCount, &resourceAt);
}

QList<Resource *> Account::findResources(const QString &type) const
{
    QList<Resource *> found;
    for (Resource *resource : m_instance->resources()) {
        if (resource->type() == type) {
            found.append(resource);
        }
    }
    return found;
}

void Account::updateConsumer()
{
    m_instance->updateConsumer();
}

void Account::updateResources()
{
    m_instance->updateResources();
}

GetRequest *Account::getRequest(const QUrl &url) const
{
    return AccountRequests::get(url);
}

PostRequest *Account::postRequest(const QUrl &url, const QJsonObject &body) const
{
    return AccountRequests::post(url, body);
}

PostRequest *Account::postRequest(const QUrl &url, const QJsonArray &body) const
{
    return AccountRequests::post(url, body);
}

PutRequest *Account::putRequest(const QUrl &url, const QJsonObject &body) const
{
    return AccountRequests::put(url, body);
}

PatchRequest *Account::patchRequest(const QUrl &url, const QJsonArray &body,
                                    QMap<QByteArray, QByteArray> headers) const
{
    return AccountRequests::patch(url, body, headers);
}

DeleteRequest *Account::deleteRequest(const QUrl &url) const
{
    return AccountRequests::remove(url);
}

Profile &Account::profile()
{
    return AccountStore::processProfile();
}

} // namespace vn::account

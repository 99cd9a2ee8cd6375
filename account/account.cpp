#include "account.h"

#include "accountconfiguration.h"
#include "accountinstance.h"
#include "accountrequests_p.h"
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

namespace {

// The process's account, alive while some Account holds it. Only touched on the main thread.
std::weak_ptr<AccountInstance> s_instance;

void deleteInstance(AccountInstance *instance)
{
    // An Account may well be destroyed from a slot that the instance's own signal is running (a
    // view closed on a status change), so inside the event loop the instance goes once control
    // returns there. Outside it (the end of main(), a test body) nothing would ever get to a
    // deferred deletion, and the instance goes at once.
    if (QCoreApplication::instance() && instance->thread()->loopLevel() > 0) {
        instance->deleteLater();
    } else {
        delete instance;
    }
}

std::shared_ptr<AccountInstance> sharedInstance()
{
    std::shared_ptr<AccountInstance> instance = s_instance.lock();
    if (!instance) {
        instance = std::shared_ptr<AccountInstance>(new AccountInstance, &deleteInstance);
        s_instance = instance;
    }
    return instance;
}

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
    , m_instance(sharedInstance())
{
    AccountInstance *instance = m_instance.get();
    connect(instance, &AccountInstance::statusChanged, this, &Account::statusChanged);
    connect(instance, &AccountInstance::onlineChanged, this, &Account::onlineChanged);
    connect(instance, &AccountInstance::identityChanged, this, &Account::identityChanged);
    connect(instance, &AccountInstance::consumerChanged, this, &Account::consumerChanged);
    connect(instance, &AccountInstance::sessionChanged, this, &Account::sessionChanged);
    connect(instance, &AccountInstance::resourcesChanged, this, &Account::resourcesChanged);
    connect(instance, &AccountInstance::error, this, &Account::error);
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
    return m_instance->status();
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
    // The first call may come from any thread: a function-local static is made exactly once.
    static Profile profile([] {
        const QCoreApplication *application = QCoreApplication::instance();
        return application ? application->property("profile").toString() : QString();
    }());
    return profile;
}

} // namespace vn::account

#include "accountstore_p.h"

#include "profile.h"

#include <QCoreApplication>
#include <QUuid>
#include <QVariant>

namespace vn::account {

namespace {

const QString ClientIdEntry = QStringLiteral("clientId");
const QString ClientKeyEntry = QStringLiteral("clientKey");
const QString AccessTokenEntry = QStringLiteral("accessToken");
const QString SessionEntry = QStringLiteral("sessionInfo");
const QString ConsumerEntry = QStringLiteral("consumerInfo");
const QString IdentityEntry = QStringLiteral("identity");
const QString ResourcesEntry = QStringLiteral("resources");

constexpr int ClientKeyType = 1; // RSA
constexpr int ClientKeyBits = 2048;

} // namespace

AccountStore::AccountStore(Profile &profile)
    : m_profile(profile)
{}

Profile &AccountStore::processProfile()
{
    // The first call may come from any thread: a function-local static is made exactly once.
    static Profile profile([] {
        const QCoreApplication *application = QCoreApplication::instance();
        return application ? application->property("profile").toString() : QString();
    }());
    return profile;
}

void AccountStore::loadClientIdentity(QString *clientId, crypto::PrivateKey *clientKey)
{
    *clientId = m_profile.readString(ClientIdEntry);
    if (clientId->isEmpty()) {
        *clientId = QUuid::createUuid().toString(QUuid::Id128);
        m_profile.write(ClientIdEntry, *clientId);
    }
    *clientKey = m_profile.readPrivateKey(ClientKeyEntry);
    if (!clientKey->isValid()) {
        *clientKey = crypto::PrivateKey(ClientKeyType, ClientKeyBits);
        m_profile.write(ClientKeyEntry, *clientKey);
    }
}

AccessToken AccountStore::token() const
{
    return m_profile.readToken(AccessTokenEntry);
}

QJsonObject AccountStore::session() const
{
    m_session = m_profile.readObject(SessionEntry);
    return m_session;
}

QJsonObject AccountStore::consumer() const
{
    return m_profile.readObject(ConsumerEntry);
}

QJsonArray AccountStore::identity() const
{
    return m_profile.readArray(IdentityEntry);
}

QJsonArray AccountStore::resources() const
{
    return m_profile.readArray(ResourcesEntry);
}

bool AccountStore::isPersistent() const
{
    return m_persistent;
}

void AccountStore::setPersistent(bool persistent)
{
    m_persistent = persistent;
}

void AccountStore::saveToken(const AccessToken &token)
{
    if (m_persistent) {
        m_profile.write(AccessTokenEntry, token);
    }
}

void AccountStore::saveSession(const QJsonObject &session)
{
    if (m_persistent && session != m_session && m_profile.write(SessionEntry, session)) {
        m_session = session;
    }
}

void AccountStore::saveConsumer(const QJsonObject &consumer)
{
    if (m_persistent) {
        m_profile.write(ConsumerEntry, consumer);
    }
}

void AccountStore::saveIdentity(const QJsonArray &chain)
{
    if (m_persistent) {
        m_profile.write(IdentityEntry, chain);
    }
}

bool AccountStore::saveResources(const QJsonArray &records)
{
    return !m_persistent || m_profile.write(ResourcesEntry, records);
}

void AccountStore::wipe()
{
    QStringList entries = m_profile.entries();
    entries.removeAll(ClientIdEntry);
    entries.removeAll(ClientKeyEntry);
    for (const QString &entry : qAsConst(entries)) {
        m_profile.deleteEntry(entry);
    }
    m_persistent = false;
    m_session = QJsonObject();
}

} // namespace vn::account

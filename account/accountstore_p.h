#pragma once

#include "accesstoken.h"

#include <VantroCrypto/privatekey.h>

#include <QJsonArray>
#include <QJsonObject>
#include <QString>

namespace vn::account {

class Profile;

/// What the account keeps between runs, as named entries of its profile: the client's own id and
/// key, and the login (token, session, consumer, identity chain, resources).
///
/// The client's identity is always kept. The login is written only when it is persistent; wipe()
/// removes it and leaves the client's identity. Writes that would put the same bytes on disk again
/// are skipped: the online check asks to write the session every half minute, and the disk need
/// not be synced for nothing.
class AccountStore
{
public:
    explicit AccountStore(Profile &profile);

    /// The process's one profile, named by the application object's dynamic property "profile"
    /// ("default" when unset or empty); made on the first call, from any thread.
    static Profile &processProfile();

    /// Reads the client's id and key, making and keeping them when the profile has none.
    void loadClientIdentity(QString *clientId, crypto::PrivateKey *clientKey);

    AccessToken token() const;
    QJsonObject session() const;
    QJsonObject consumer() const;
    QJsonArray identity() const;
    QJsonArray resources() const;

    bool isPersistent() const;
    void setPersistent(bool persistent);

    // The login's entries, written only while persistent.
    void saveToken(const AccessToken &token);
    void saveSession(const QJsonObject &session);
    void saveConsumer(const QJsonObject &consumer);
    void saveIdentity(const QJsonArray &chain);
    /// False when the write failed.
    bool saveResources(const QJsonArray &records);

    /// Removes every entry but the client's identity, and leaves the store not persistent.
    void wipe();

private:
    Profile &m_profile;
    bool m_persistent = false;
    /// The session record as the profile holds it, read or written last.
    mutable QJsonObject m_session;
};

} // namespace vn::account

#pragma once

#include "signedscenario.h"

#include <QByteArray>
#include <QDateTime>
#include <QDeadlineTimer>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>
#include <QMutex>
#include <QString>

#include <memory>

namespace vn::devservice {

/// One live login: what "logins/current" describes and its token opens.
struct Login
{
    quint64 sequence = 0;
    QString id;
    QByteArray token;
    QString username;
    /// Who logged in: the user, the user who impersonates, or the device.
    QString authenticatedAs;
    QString authType;
    QString hostInfo;
    bool persistent = false;
    QDateTime since;
    qint64 expires = 0; // seconds since the epoch

    /// The session record: "id", "hostInfo", "since", "persistent", "authType", "user", "expires",
    /// and "authenticatedAs" when it is not the user.
    QJsonObject record() const;
};

/// A challenge of a challenge-response login, waiting for its answer.
struct Challenge
{
    QByteArray secret;
    QString username;
    QString device;
    QDeadlineTimer deadline;
};

/// What the account API keeps between requests: the signed scenario it serves, the live logins and
/// the pending challenges, which belong to that scenario and go with it. Every member is safe to
/// call from any thread; signing happens outside, so requests do not wait for one another's keys.
class SessionStore
{
public:
    /// Unanswered challenges are kept until they expire; past this many new ones are refused
    /// rather than let the table grow without bound.
    static constexpr int MaximumPendingChallenges = 10000;

    std::shared_ptr<const SignedScenario> scenario() const;
    /// Serves @p scenario from now on; every login and challenge of the one before is forgotten.
    void reset(std::shared_ptr<const SignedScenario> scenario);
    /// Serves @p resigned, the current scenario signed again, if @p current is still the one
    /// served; logins and challenges stay.
    bool replace(const std::shared_ptr<const SignedScenario> &current,
                 std::shared_ptr<const SignedScenario> resigned);

    /// Adds @p login, numbered after every earlier one, if @p current is still the scenario
    /// served: a login made while the scenario was replaced belongs to none. Logins that expired
    /// by @p now go.
    bool addLogin(Login login, const std::shared_ptr<const SignedScenario> &current, qint64 now);
    /// The live login that @p token opens, and the scenario it belongs to.
    bool findLogin(const QByteArray &token, Login *login, std::shared_ptr<const SignedScenario> *current);
    void removeLogin(const QString &id);
    /// Removes the login @p id if it is one of @p username's: its record, or an empty object (for
    /// another user's login as for one that does not exist).
    QJsonObject removeLoginOf(const QString &id, const QString &username);
    /// The session records of the live logins of @p username (empty: of everyone), oldest first.
    QJsonArray loginRecords(const QString &username = QString()) const;

    /// False when too many challenges are pending.
    bool addChallenge(const QString &id, const Challenge &challenge);
    /// Takes the challenge @p id out, answered right or wrong: it can be answered once. False when
    /// there is no such challenge.
    bool takeChallenge(const QString &id, Challenge *challenge,
                       std::shared_ptr<const SignedScenario> *current);

private:
    void removeLoginLocked(const QString &id);

    mutable QMutex m_mutex;
    std::shared_ptr<const SignedScenario> m_scenario;
    QHash<QString, Login> m_logins;
    QHash<QByteArray, QString> m_loginByToken;
    QHash<QString, Challenge> m_challenges;
    quint64 m_loginSequence = 0;
};

} // namespace vn::devservice

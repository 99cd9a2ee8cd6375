#include "sessionstore.h"

#include <algorithm>

namespace vn::devservice {

QJsonObject Login::record() const
{
    QJsonObject object{
        {QStringLiteral("id"), id},
        {QStringLiteral("hostInfo"), hostInfo},
        {QStringLiteral("since"), since.toString(Qt::ISODate)},
        {QStringLiteral("persistent"), persistent},
        {QStringLiteral("authType"), authType},
        {QStringLiteral("user"), username},
        {QStringLiteral("expires"), QDateTime::fromSecsSinceEpoch(expires, Qt::UTC).toString(Qt::ISODate)},
    };
    if (authenticatedAs != username) {
        object.insert(QStringLiteral("authenticatedAs"), authenticatedAs);
    }
    return object;
}

std::shared_ptr<const SignedScenario> SessionStore::scenario() const
{
    QMutexLocker locker(&m_mutex);
    return m_scenario;
}

void SessionStore::reset(std::shared_ptr<const SignedScenario> scenario)
{
    QMutexLocker locker(&m_mutex);
    m_scenario = std::move(scenario);
    m_logins.clear();
    m_loginByToken.clear();
    m_challenges.clear();
}

bool SessionStore::replace(const std::shared_ptr<const SignedScenario> &current,
                           std::shared_ptr<const SignedScenario> resigned)
{
    QMutexLocker locker(&m_mutex);
    if (!resigned || m_scenario != current) {
        return false;
    }
    m_scenario = std::move(resigned);
    return true;
}

bool SessionStore::addLogin(Login login, const std::shared_ptr<const SignedScenario> &current, qint64 now)
{
    QMutexLocker locker(&m_mutex);
    if (m_scenario != current) {
        return false;
    }
    for (auto it = m_logins.begin(); it != m_logins.end();) {
        if (it->expires <= now) {
            m_loginByToken.remove(it->token);
            it = m_logins.erase(it);
        } else {
            ++it;
        }
    }
    login.sequence = ++m_loginSequence;
    m_loginByToken.insert(login.token, login.id);
    m_logins.insert(login.id, login);
    return true;
}

bool SessionStore::findLogin(const QByteArray &token, Login *login,
                             std::shared_ptr<const SignedScenario> *current)
{
    QMutexLocker locker(&m_mutex);
    const auto id = m_loginByToken.constFind(token);
    if (id == m_loginByToken.constEnd()) {
        return false;
    }
    const Login found = m_logins.value(id.value());
    if (found.expires <= QDateTime::currentSecsSinceEpoch()) {
        removeLoginLocked(found.id);
        return false;
    }
    *login = found;
    *current = m_scenario;
    return true;
}

void SessionStore::removeLogin(const QString &id)
{
    QMutexLocker locker(&m_mutex);
    removeLoginLocked(id);
}

QJsonObject SessionStore::removeLoginOf(const QString &id, const QString &username)
{
    QMutexLocker locker(&m_mutex);
    const auto found = m_logins.constFind(id);
    if (found == m_logins.constEnd() || found->username != username) {
        return QJsonObject();
    }
    const QJsonObject record = found->record();
    removeLoginLocked(id);
    return record;
}

QJsonArray SessionStore::loginRecords(const QString &username) const
{
    QList<Login> logins;
    {
        QMutexLocker locker(&m_mutex);
        for (const Login &login : m_logins) {
            if (username.isEmpty() || login.username == username) {
                logins.append(login);
            }
        }
    }
    std::sort(logins.begin(), logins.end(),
              [](const Login &first, const Login &second) { return first.sequence < second.sequence; });
    QJsonArray records;
    for (const Login &login : qAsConst(logins)) {
        records.append(login.record());
    }
    return records;
}

bool SessionStore::addChallenge(const QString &id, const Challenge &challenge)
{
    QMutexLocker locker(&m_mutex);
    for (auto it = m_challenges.begin(); it != m_challenges.end();) {
        it = it->deadline.hasExpired() ? m_challenges.erase(it) : std::next(it);
    }
    if (m_challenges.size() >= MaximumPendingChallenges) {
        return false;
    }
    m_challenges.insert(id, challenge);
    return true;
}

bool SessionStore::takeChallenge(const QString &id, Challenge *challenge,
                                 std::shared_ptr<const SignedScenario> *current)
{
    QMutexLocker locker(&m_mutex);
    const auto found = m_challenges.find(id);
    if (found == m_challenges.end()) {
        return false;
    }
    *challenge = found.value();
    m_challenges.erase(found);
    *current = m_scenario;
    return true;
}

void SessionStore::removeLoginLocked(const QString &id)
{
    const auto found = m_logins.find(id);
    if (found != m_logins.end()) {
        m_loginByToken.remove(found->token);
        m_logins.erase(found);
    }
}

} // namespace vn::devservice

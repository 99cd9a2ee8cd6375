#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QList>
#include <QStringList>

class QObject;

namespace vn::account {

class AccountIdentity;
class Resource;

/// The account's resources, kept in step with the records the service sends.
///
/// A record the list already holds (the same "signature" text) keeps its object; a new one is built
/// by type and kept only when its signature verifies. The service sends the whole list every
/// quarter of an hour, mostly unchanged: the same answer again is recognised by its bytes.
class ResourceList
{
public:
    const QList<Resource *> &resources() const { return m_resources; }

    /// Whether @p body is the answer the list was last made from.
    bool isFrom(const QByteArray &body) const { return !body.isEmpty() && body == m_body; }
    /// Remembers @p body as the answer the list was made from (empty: none).
    void setBody(const QByteArray &body) { m_body = body; }

    /// Makes the list follow @p records, building new resources against @p chain as children of
    /// @p parent. Objects no longer listed are scheduled for deletion. Returns whether the list
    /// changed (other objects, or another order).
    bool merge(const QJsonArray &records, AccountIdentity *chain, QObject *parent);
    /// Schedules every resource for deletion and empties the list; returns whether it held any.
    bool clear();

private:
    QList<Resource *> m_resources;
    /// The "signature" text of each resource, in the order of m_resources: the merge's index.
    QStringList m_signatures;
    QByteArray m_body;
};

} // namespace vn::account

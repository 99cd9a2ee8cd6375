#include "resourcelist_p.h"

#include "resource.h"

#include <QHash>
#include <QJsonObject>
#include <QSet>

namespace vn::account {

bool ResourceList::merge(const QJsonArray &records, AccountIdentity *chain, QObject *parent)
{
    QHash<QString, Resource *> present;
    present.reserve(m_resources.size());
    for (int index = 0; index < m_resources.size(); ++index) {
        present.insert(m_signatures.at(index), m_resources.at(index));
    }

    QList<Resource *> kept;
    QStringList keptSignatures;
    kept.reserve(records.size());
    keptSignatures.reserve(records.size());
    QSet<Resource *> reused;
    for (const QJsonValue &value : records) {
        const QJsonObject record = value.toObject();
        const QString signature = record.value(QLatin1String("signature")).toString();
        Resource *resource = present.value(signature);
        if (resource) {
            reused.insert(resource);
        } else {
            resource = Resource::create(record, chain, parent);
            if (!resource->isValid()) {
                // Nothing has seen it yet, and an invalid credential must not stay registered.
                delete resource;
                continue;
            }
        }
        kept.append(resource);
        keptSignatures.append(signature);
    }

    if (kept == m_resources) {
        return false;
    }
    for (Resource *resource : qAsConst(m_resources)) {
        if (!reused.contains(resource)) {
            resource->deleteLater();
        }
    }
    m_resources = kept;
    m_signatures = keptSignatures;
    return true;
}

bool ResourceList::clear()
{
    m_body.clear();
    if (m_resources.isEmpty()) {
        return false;
    }
    for (Resource *resource : qAsConst(m_resources)) {
        resource->deleteLater();
    }
    m_resources.clear();
    m_signatures.clear();
    return true;
}

} // namespace vn::account

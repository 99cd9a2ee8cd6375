#include "resource.h"
#include "resource_p.h"

#include "accountidentity.h"
#include "identitychain_p.h"
#include "logging_p.h"

#include <VantroCrypto/jsonsignature.h>

#include <QJsonObject>

#include <algorithm>

namespace vn::account {

QHash<QByteArray, Resource::CreationFunction> Resource::m_creationFunc;

Resource *Resource::create(const QJsonObject &record, AccountIdentity *chain, QObject *parent)
{
    const QByteArray type = record.value(QLatin1String("type")).toString().toLatin1();
    const auto factory = m_creationFunc.constFind(type);
    if (factory != m_creationFunc.constEnd()) {
        return (*factory)(record, chain, parent);
    }
    // A type this library does not know is kept, verified, as a plain resource: the application
    // may still read its envelope and payload.
    return new Resource(record, chain, parent);
}

void Resource::registerType(const QByteArray &type, const CreationFunction &factory)
{
    if (!m_creationFunc.contains(type)) {
        m_creationFunc.insert(type, factory);
    }
}

Resource::Resource(const QJsonObject &record, AccountIdentity *chain, QObject *parent)
    : Resource(*new ResourcePrivate(this), record, chain, parent)
{}

Resource::Resource(ResourcePrivate &dd, const QJsonObject &record, AccountIdentity *chain, QObject *parent)
    : QObject(parent)
    , d_ptr(&dd)
{
    Q_D(Resource);
    d->record = record;

    // The priority counts the steps from the account's own identity up to the owner.
    const QList<Identity *> links = chainLinks(chain);
    const int ownerStep =
        int(std::find_if(links.cbegin(), links.cend(),
                         [owner = owner()](const Identity *link) { return link->uuid() == owner; }) -
            links.cbegin());
    d->priority = ownerStep < links.size() ? 65535 - ownerStep : 0;

    // The issuer's own validity is not asked here: the account keeps only chains that verify as a
    // whole. What matters is that the issuer is part of this account's chain.
    const QString issuer = record.value(QLatin1String("issuer")).toString();
    for (const Identity *link : links) {
        if (link->uuid() == issuer) {
            d->valid = crypto::JsonSignature::verify(record, link->publicKey());
            if (!d->valid) {
                qCCritical(lcAccountResource, "Signature validation failed for resource %s",
                           qUtf8Printable(uuid()));
            }
            return;
        }
    }
    qCCritical(lcAccountResource, "No issuer declared on resource %s", qUtf8Printable(uuid()));
}

Resource::~Resource() = default;

QString Resource::uuid() const
{
    Q_D(const Resource);
    return d->record.value(QLatin1String("id")).toString();
}

QString Resource::type() const
{
    Q_D(const Resource);
    return d->record.value(QLatin1String("type")).toString();
}

QString Resource::owner() const
{
    Q_D(const Resource);
    return d->record.value(QLatin1String("owner")).toString();
}

QByteArray Resource::signature() const
{
    Q_D(const Resource);
    return d->record.value(QLatin1String("signature")).toString().toUtf8();
}

QJsonValue Resource::payload() const
{
    Q_D(const Resource);
    return d->record.value(QLatin1String("payload"));
}

bool Resource::isValid() const
{
    Q_D(const Resource);
    return d->valid;
}

int Resource::priority() const
{
    Q_D(const Resource);
    return d->priority;
}

} // namespace vn::account

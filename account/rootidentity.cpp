#include "rootidentity.h"
#include "rootidentity_p.h"

#include "accountconfiguration.h"

#include <QJsonObject>

namespace vn::account {

RootIdentity::RootIdentity(QObject *parent)
    : Identity(parent)
    , d(std::make_unique<RootIdentityPrivate>())
{
    const QJsonObject record = AccountConfiguration::rootIdentity();
    d->uuid = record.value(QLatin1String("uuid")).toString();
    d->name = record.value(QLatin1String("name")).toString();
    d->publicKey = crypto::PublicKey(record.value(QLatin1String("publicKey")).toString().toLatin1());
    if (!d->publicKey.isValid()) {
        qFatal("Root identity has invalid public key!");
    }
}

RootIdentity::~RootIdentity() = default;

QString RootIdentity::uuid() const
{
    return d->uuid;
}

QString RootIdentity::name() const
{
    return d->name;
}

Identity *RootIdentity::parent() const
{
    return nullptr;
}

QString RootIdentity::signature() const
{
    return QString();
}

bool RootIdentity::isValid() const
{
    return true;
}

crypto::PublicKey RootIdentity::publicKey() const
{
    return d->publicKey;
}

} // namespace vn::account

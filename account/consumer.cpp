#include "consumer.h"
#include "consumer_p.h"

#include <QJsonArray>
#include <QJsonObject>

#include <cmath>
#include <limits>

namespace vn::account {

namespace {

// A permission entry is a positive 32-bit integer. Anything else (zero, negative, fractional, out of
// range, or not a number at all) is no permission and is dropped. The range is checked before the
// conversion: a double beyond int has no int value.
int permissionEntry(const QJsonValue &value)
{
    if (!value.isDouble()) {
        return 0;
    }
    const double number = value.toDouble();
    if (!(number > 0) || number > std::numeric_limits<int>::max() || std::trunc(number) != number) {
        return 0;
    }
    return static_cast<int>(number);
}

} // namespace

Consumer::Consumer(const QJsonObject &consumer, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<ConsumerPrivate>(this))
{
    const bool wasBlocked = blockSignals(true);
    update(consumer);
    blockSignals(wasBlocked);
}

Consumer::~Consumer() = default;

void Consumer::update(const QJsonObject &consumer)
{
    d->identifier = consumer.value(QLatin1String("id")).toString();

    const QString name = consumer.value(QLatin1String("name")).toString();
    if (name != d->name) {
        d->name = name;
        Q_EMIT nameChanged();
    }

    const QString email = consumer.value(QLatin1String("email")).toString();
    if (email != d->email) {
        d->email = email;
        Q_EMIT emailChanged();
    }

    QList<int> permissions;
    const QJsonArray permissionArray = consumer.value(QLatin1String("permissions")).toArray();
    for (const QJsonValue &value : permissionArray) {
        const int permission = permissionEntry(value);
        if (permission > 0) {
            permissions.append(permission);
        }
    }
    if (permissions != d->permissions) {
        d->permissions = permissions;
        Q_EMIT permissionsChanged();
    }

    QStringList roles;
    const QJsonArray roleArray = consumer.value(QLatin1String("roles")).toArray();
    for (const QJsonValue &value : roleArray) {
        const QString role = value.toString();
        if (!role.isEmpty()) {
            roles.append(role);
        }
    }
    if (roles != d->roles) {
        d->roles = roles;
        Q_EMIT rolesChanged();
    }
}

QString Consumer::identifier() const
{
    return d->identifier;
}

QString Consumer::name() const
{
    return d->name;
}

QString Consumer::email() const
{
    return d->email;
}

QList<int> Consumer::permissions() const
{
    return d->permissions;
}

QStringList Consumer::roles() const
{
    return d->roles;
}

bool Consumer::hasPermission(Permission::PermissionFlags permission) const
{
    const int requested = int(permission);
    if (requested == Permission::NoPermission) {
        return true;
    }
    for (const int entry : qAsConst(d->permissions)) {
        if ((entry & requested) == requested) {
            return true;
        }
    }
    return false;
}

bool Consumer::hasRole(const QString &role) const
{
    return !role.isEmpty() && d->roles.contains(role, Qt::CaseSensitive);
}

} // namespace vn::account

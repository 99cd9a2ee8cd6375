#include "permission.h"

#include "account.h"
#include "consumer.h"

#include <QPointer>

namespace vn::account {

class PermissionPrivate
{
public:
    explicit PermissionPrivate(Permission *owner)
        : q(owner)
    {}

    Permission *const q;
    bool present = true;
    Permission::PermissionFlags require = Permission::NoPermission;
    QPointer<Consumer> consumer;
    // A facade holds the process's account instance: it stays alive while this element does.
    Account account;
};

Permission::Permission(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<PermissionPrivate>(this))
{
    connect(&d->account, &Account::consumerChanged, this, &Permission::updateConsumer);
    updateConsumer();
}

Permission::~Permission() = default;

Permission::PermissionFlags Permission::require() const
{
    return d->require;
}

void Permission::setRequire(PermissionFlags require)
{
    if (d->require == require) {
        return;
    }
    d->require = require;
    Q_EMIT requireChanged();
    updatePresent();
}

bool Permission::present() const
{
    return d->present;
}

void Permission::updatePresent()
{
    bool present = false;
    if (d->require == NoPermission) {
        present = true;
    } else if (d->consumer) {
        present = d->consumer->hasPermission(d->require);
    }
    if (present != d->present) {
        d->present = present;
        Q_EMIT presentChanged();
    }
}

void Permission::updateConsumer()
{
    if (d->consumer) {
        disconnect(d->consumer, nullptr, this, nullptr);
    }
    d->consumer = d->account.consumer();
    if (d->consumer) {
        connect(d->consumer, &Consumer::permissionsChanged, this, &Permission::updatePresent);
    }
    updatePresent();
}

} // namespace vn::account

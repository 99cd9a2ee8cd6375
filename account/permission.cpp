#include "permission.h"

#include "consumer.h"
#include "elementhub_p.h"

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
    // Watches the consumer for every element, and holds the account instance alive meanwhile.
    std::shared_ptr<ElementHub> hub = ElementHub::acquire();
};

Permission::Permission(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<PermissionPrivate>(this))
{
    d->hub->add(ElementHub::Watch::Permissions,
                {this, [](QObject *element) { static_cast<Permission *>(element)->updateConsumer(); },
                 [](QObject *element) { static_cast<Permission *>(element)->updatePresent(); }});
    updateConsumer();
}

Permission::~Permission()
{
    d->hub->remove(ElementHub::Watch::Permissions, this);
}

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
    d->consumer = d->hub->consumer();
    updatePresent();
}

} // namespace vn::account

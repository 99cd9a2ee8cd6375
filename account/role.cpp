#include "role.h"

#include "consumer.h"
#include "elementhub_p.h"

#include <QPointer>

#include <algorithm>

namespace vn::account {

class RolePrivate
{
public:
    explicit RolePrivate(Role *owner)
        : q(owner)
    {}

    Role *const q;
    bool present = true;
    QStringList require;
    QPointer<Consumer> consumer;
    // Watches the consumer for every element, and holds the account instance alive meanwhile.
    std::shared_ptr<ElementHub> hub = ElementHub::acquire();
};

Role::Role(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<RolePrivate>(this))
{
    d->hub->add(ElementHub::Watch::Roles,
                {this, [](QObject *element) { static_cast<Role *>(element)->updateConsumer(); },
                 [](QObject *element) { static_cast<Role *>(element)->updatePresent(); }});
    updateConsumer();
}

Role::~Role()
{
    d->hub->remove(ElementHub::Watch::Roles, this);
}

QStringList Role::require() const
{
    return d->require;
}

void Role::setRequire(const QStringList &require)
{
    if (d->require == require) {
        return;
    }
    d->require = require;
    Q_EMIT requireChanged();
    updatePresent();
}

bool Role::present() const
{
    return d->present;
}

void Role::updatePresent()
{
    bool present = d->require.isEmpty();
    if (!present && d->consumer) {
        present = std::all_of(d->require.cbegin(), d->require.cend(),
                              [this](const QString &role) { return d->consumer->hasRole(role); });
    }
    if (present != d->present) {
        d->present = present;
        Q_EMIT presentChanged();
    }
}

void Role::updateConsumer()
{
    d->consumer = d->hub->consumer();
    updatePresent();
}

} // namespace vn::account

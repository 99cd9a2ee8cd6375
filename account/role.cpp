#include "role.h"

#include "account.h"
#include "consumer.h"

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
    // A facade holds the process's account instance: it stays alive while this element does.
    Account account;
};

Role::Role(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<RolePrivate>(this))
{
    connect(&d->account, &Account::consumerChanged, this, &Role::updateConsumer);
    updateConsumer();
}

Role::~Role() = default;

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
    if (d->consumer) {
        disconnect(d->consumer, nullptr, this, nullptr);
    }
    d->consumer = d->account.consumer();
    if (d->consumer) {
        connect(d->consumer, &Consumer::rolesChanged, this, &Role::updatePresent);
    }
    updatePresent();
}

} // namespace vn::account

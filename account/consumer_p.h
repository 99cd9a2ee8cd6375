#pragma once

#include <QList>
#include <QString>
#include <QStringList>

namespace vn::account {

class Consumer;

class ConsumerPrivate
{
public:
    explicit ConsumerPrivate(Consumer *owner)
        : q(owner)
    {}

    Consumer *const q;
    QString identifier;
    QString name;
    QString email;
    QList<int> permissions;
    QStringList roles;
};

} // namespace vn::account

#pragma once

#include "resource_p.h"

#include <QString>
#include <QUrl>
#include <QVariantMap>

namespace vn::account {

class Database;

class DatabasePrivate : public ResourcePrivate
{
    Q_DECLARE_PUBLIC(Database)

public:
    explicit DatabasePrivate(Database *owner)
        : ResourcePrivate(owner)
    {}

    QUrl server;
    QString name;
    QVariantMap authoringOptions;
};

} // namespace vn::account

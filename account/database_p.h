#pragma once

#include <QString>
#include <QUrl>
#include <QVariantMap>

namespace vn::account {

class Database;

class DatabasePrivate
{
public:
    explicit DatabasePrivate(Database *owner)
        : q(owner)
    {}

    Database *const q;
    QUrl server;
    QString name;
    QVariantMap authoringOptions;
};

} // namespace vn::account

#pragma once

#include <QJsonObject>

namespace vn::account {

class Resource;

class ResourcePrivate
{
public:
    explicit ResourcePrivate(Resource *owner)
        : q(owner)
    {}

    Resource *const q;
    bool valid = false;
    int priority = 0;
    QJsonObject record;
};

} // namespace vn::account

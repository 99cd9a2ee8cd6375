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
    QJsonObject record;
};

} // namespace vn::account

#pragma once

#include <QJsonObject>

namespace vn::account {

class Resource;

class ResourcePrivate
{
public:
    explicit ResourcePrivate(Resource *owner)
        : q_ptr(owner)
    {}
    virtual ~ResourcePrivate() = default;

    Resource *const q_ptr;
    bool valid = false;
    int priority = 0;
    QJsonObject record;
};

} // namespace vn::account

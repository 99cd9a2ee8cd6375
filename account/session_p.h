#pragma once

#include <QDateTime>
#include <QString>

namespace vn::account {

class Session;

class SessionPrivate
{
public:
    explicit SessionPrivate(Session *owner)
        : q(owner)
    {}

    Session *const q;
    QString identifier;
    QString hostInfo;
    QDateTime since;
};

} // namespace vn::account

#include "session.h"
#include "session_p.h"

#include <QJsonObject>

namespace vn::account {

Session::Session(const QJsonObject &session, QObject *parent)
    : QObject(parent)
    , d(std::make_unique<SessionPrivate>(this))
{
    d->identifier = session.value(QLatin1String("id")).toString();
    d->hostInfo = session.value(QLatin1String("hostInfo")).toString();
    d->since = QDateTime::fromString(session.value(QLatin1String("since")).toString(), Qt::ISODate);
}

Session::~Session() = default;

QString Session::identifier() const
{
    return d->identifier;
}

QString Session::hostInfo() const
{
    return d->hostInfo;
}

QDateTime Session::since() const
{
    return d->since;
}

} // namespace vn::account

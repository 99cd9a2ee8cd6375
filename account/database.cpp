#include "database.h"
#include "database_p.h"

#include <QJsonObject>

namespace vn::account {

Database::Database(const QJsonObject &record, AccountIdentity *chain, QObject *parent)
    : Resource(*new DatabasePrivate(this), record, chain, parent)
{
    Q_D(Database);
    const QJsonObject payload = this->payload().toObject();
    d->server = QUrl(payload.value(QLatin1String("server")).toString());
    d->name = payload.value(QLatin1String("name")).toString();
    d->authoringOptions = payload.value(QLatin1String("authoringOptions")).toObject().toVariantMap();
}

Database::~Database() = default;

QUrl Database::server() const
{
    Q_D(const Database);
    return d->server;
}

QString Database::name() const
{
    Q_D(const Database);
    return d->name;
}

QVariantMap Database::authoringOptions() const
{
    Q_D(const Database);
    return d->authoringOptions;
}

} // namespace vn::account

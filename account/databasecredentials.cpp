#include "databasecredentials.h"
#include "databasecredentials_p.h"

#include "logging_p.h"

#include <VantroNetwork/basicauthorization.h>
#include <VantroNetwork/bearerauthorization.h>
#include <VantroNetwork/oauth1authorization.h>

#include <QJsonObject>

namespace vn::account {

namespace {

QString stringMember(const QJsonObject &object, const char *key)
{
    return object.value(QLatin1String(key)).toString();
}

} // namespace

DatabaseCredentials::DatabaseCredentials(const QJsonObject &record, AccountIdentity *chain, QObject *parent)
    : Resource(*new DatabaseCredentialsPrivate(this), record, chain, parent)
{
    Q_D(DatabaseCredentials);
    const QJsonObject payload = this->payload().toObject();
    d->credentialType = stringMember(payload, "type");
    const QStringList realms{stringMember(payload, "realm")};
    const QJsonObject credentials = payload.value(QLatin1String("credentials")).toObject();

    std::unique_ptr<network::Authorization> authorization;
    if (d->credentialType == QLatin1String("oauth1")) {
        authorization = std::make_unique<network::OAuth1Authorization>(
            realms, stringMember(credentials, "consumerKey"), stringMember(credentials, "consumerSecret"),
            stringMember(credentials, "token"), stringMember(credentials, "tokenSecret"));
    } else if (d->credentialType == QLatin1String("basic")) {
        authorization = std::make_unique<network::BasicAuthorization>(
            realms, stringMember(credentials, "userName"), stringMember(credentials, "password"));
    } else if (d->credentialType == QLatin1String("bearer")) {
        authorization = std::make_unique<network::BearerAuthorization>(
            realms, stringMember(credentials, "token").toLatin1());
    } else {
        qCWarning(lcAccount) << "Unsupported credential type" << d->credentialType << "in resource" << uuid();
        return;
    }

    const std::shared_ptr<network::AuthorizationRegistry> registry =
        network::AuthorizationRegistry::instance();
    d->authorization = network::AuthorizationHandle(registry->add(authorization.release()),
                                                    network::HandleDeleter(registry));
}

DatabaseCredentials::~DatabaseCredentials() = default;

QString DatabaseCredentials::credentialType() const
{
    Q_D(const DatabaseCredentials);
    return d->credentialType;
}

} // namespace vn::account

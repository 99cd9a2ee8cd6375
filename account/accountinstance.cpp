#include "accountinstance.h"
#include "accountinstance_p.h"

#include "database.h"
#include "databasecredentials.h"
#include "resource.h"

namespace vn::account {

namespace {

// The types the account service hands out. Registration keeps the first factory for a name, so a
// later instance in the same process registers nothing twice.
void registerResourceTypes()
{
    Resource::registerType<Database>("vantro.resource.Database");
    Resource::registerType<DatabaseCredentials>("vantro.resource.AuthorCredentials");
    Resource::registerType<DatabaseCredentials>("vantro.resource.DeviceCredentials");
}

} // namespace

AccountInstance::AccountInstance(QObject *parent)
    : QObject(parent)
    , d(std::make_unique<AccountInstancePrivate>(this))
{
    registerResourceTypes();
}

AccountInstance::~AccountInstance() = default;

AccountIdentity *AccountInstance::identity() const
{
    return d->identity;
}

void AccountInstance::setIdentity(AccountIdentity *identity)
{
    if (d->identity == identity) {
        return;
    }
    d->identity = identity;
    Q_EMIT identityChanged();
}

} // namespace vn::account

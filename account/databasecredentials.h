#pragma once

#include "resource.h"

#include <QString>

#include <memory>

namespace vn::account {

class DatabaseCredentialsPrivate;

/// Credentials for a realm, from the payload of a "vantro.resource.AuthorCredentials" or
/// "vantro.resource.DeviceCredentials" record: a bearer token, a user name and password, or an
/// OAuth 1 key set.
///
/// For exactly as long as the object lives, the matching authorization is registered with the
/// platform's authorization registry, so every request to the realm is authorised without further
/// work. Registration does not wait for a valid signature: the account core decides which resources
/// it keeps. Internal to the library; exported so that the QML module can name the type.
class VANTROACCOUNT_EXPORT DatabaseCredentials : public Resource
{
    Q_OBJECT
    Q_PROPERTY(QString credentialType READ credentialType CONSTANT)

public:
    DatabaseCredentials(const QJsonObject &record, AccountIdentity *chain, QObject *parent);
    /// Withdraws the authorization from the registry.
    ~DatabaseCredentials() override;

    /// The credential kind as the payload names it: "bearer", "basic" or "oauth1" when supported.
    QString credentialType() const;

private:
    Q_DISABLE_COPY(DatabaseCredentials)
    Q_DECLARE_PRIVATE(DatabaseCredentials)
};

} // namespace vn::account

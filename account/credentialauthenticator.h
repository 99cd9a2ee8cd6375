#pragma once

#include <VantroAccount/abstractauthenticator.h>

#include <memory>

namespace vn::account {

class CredentialAuthenticatorPrivate;

/// Logs in with a user name and a password.
///
/// The user name may name a second user after ">>": "alice>>bob" logs in as alice to act as bob,
/// which the service allows only to users who may impersonate. The password is cleared once the
/// service has issued a token, and kept after a failure so that the user can try again.
class VANTROACCOUNT_EXPORT CredentialAuthenticator : public AbstractAuthenticator
{
    Q_OBJECT
    Q_PROPERTY(QString userName READ userName WRITE setUserName NOTIFY userNameChanged)
    Q_PROPERTY(QString password READ password WRITE setPassword NOTIFY passwordChanged)

public:
    explicit CredentialAuthenticator(QObject *parent = nullptr);
    ~CredentialAuthenticator() override;

    QString userName() const;
    void setUserName(const QString &userName);

    QString password() const;
    void setPassword(const QString &password);

    void start() override;

Q_SIGNALS:
    void userNameChanged();
    void passwordChanged();

private Q_SLOTS:
    void processResponse();

private:
    Q_DISABLE_COPY(CredentialAuthenticator)
    Q_DECLARE_PRIVATE(CredentialAuthenticator)
};

} // namespace vn::account

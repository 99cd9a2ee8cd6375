#pragma once

#include <VantroAccount/permission.h>
#include <VantroAccount/vantroaccount_export.h>

#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>

#include <memory>

class QJsonObject;

namespace vn::account {

class ConsumerPrivate;

/// The signed-in user, with the permissions and roles that the account service grants.
///
/// Updated in place whenever the service sends fresh data, so that bindings follow the changes.
class VANTROACCOUNT_EXPORT Consumer : public QObject
{
    Q_OBJECT
    Q_PROPERTY(QString identifier READ identifier CONSTANT)
    Q_PROPERTY(QString name READ name NOTIFY nameChanged)
    Q_PROPERTY(QString email READ email NOTIFY emailChanged)
    Q_PROPERTY(QList<int> permissions READ permissions NOTIFY permissionsChanged)
    Q_PROPERTY(QStringList roles READ roles NOTIFY rolesChanged)

public:
    /// Reads @p consumer as update() does, without emitting anything.
    Consumer(const QJsonObject &consumer, QObject *parent = nullptr);
    ~Consumer() override;

    /// Takes "id", "name", "email", "permissions" and "roles" from @p consumer. A missing key counts
    /// as an empty value. Each change signal fires only when its value differs.
    void update(const QJsonObject &consumer);

    QString identifier() const;
    QString name() const;
    QString email() const;
    /// The granted permissions, each a combination of Permission::PermissionFlag values.
    QList<int> permissions() const;
    QStringList roles() const;

    /// True when one single granted entry holds every bit of @p permission; always true for
    /// NoPermission. Bits spread over several entries do not add up.
    Q_INVOKABLE bool hasPermission(vn::account::Permission::PermissionFlags permission) const;
    /// True when @p role is one of the roles, compared case-sensitively; false for an empty name.
    Q_INVOKABLE bool hasRole(const QString &role) const;

Q_SIGNALS:
    void nameChanged();
    void emailChanged();
    void permissionsChanged();
    void rolesChanged();

private:
    Q_DISABLE_COPY(Consumer)
    std::unique_ptr<ConsumerPrivate> const d;
};

} // namespace vn::account

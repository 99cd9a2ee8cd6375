#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QFlags>
#include <QObject>

#include <memory>

namespace vn::account {

class PermissionPrivate;

/// Whether the signed-in user holds a combination of permissions, as a live answer for the user
/// interface.
///
/// A permission is one 32-bit value that combines operation bits with object-type bits; the values
/// are the service's wire format and never change. Set @ref require and bind to @ref present, for
/// example to show a control only to users who may delete accounts (two flags in a binding go in
/// parentheses: Qt 5.15 compiles `Type.A | Type.B` on a flags property as the last name alone):
///
/// @code{.qml}
/// Permission { id: mayDelete; require: (Permission.DeletePermission | Permission.AccountType) }
/// Button { visible: mayDelete.present }
/// @endcode
///
/// The element follows the account by itself: a sign-in, a sign-out, a replaced consumer and new
/// permissions from the service all update @ref present. It never talks to the network.
class VANTROACCOUNT_EXPORT Permission : public QObject
{
    Q_OBJECT
    /// The permissions asked for; all of them must be held within one granted entry.
    Q_PROPERTY(
        vn::account::Permission::PermissionFlags require READ require WRITE setRequire NOTIFY requireChanged)
    /// True when nothing is required, or when the signed-in user holds @ref require; false while
    /// nobody is signed in.
    Q_PROPERTY(bool present READ present NOTIFY presentChanged)

public:
    enum PermissionFlag {
        NoPermission = 0x0,
        // operations
        ReadPermission = 0x1,
        ModifyPermission = 0x2,
        CreatePermission = 0x4,
        DeletePermission = 0x8,
        // object types
        AccountType = 0x10,
        ConsumerType = 0x20,
        ResourceType = 0x40,
        Journal = 0x20000,
    };
    Q_DECLARE_FLAGS(PermissionFlags, PermissionFlag)
    Q_FLAG(PermissionFlags)

    /// Watches the process's account (made now if there is none yet, and kept alive while this
    /// element lives) and answers for its current consumer at once.
    explicit Permission(QObject *parent = nullptr);
    ~Permission() override;

    PermissionFlags require() const;
    void setRequire(PermissionFlags require);
    bool present() const;

Q_SIGNALS:
    void requireChanged();
    void presentChanged();

private Q_SLOTS:
    void updatePresent();
    void updateConsumer();

private:
    Q_DISABLE_COPY(Permission)
    std::unique_ptr<PermissionPrivate> const d;
};

} // namespace vn::account

Q_DECLARE_OPERATORS_FOR_FLAGS(vn::account::Permission::PermissionFlags)

#pragma once

#include <VantroAccount/vantroaccount_export.h>

#include <QFlags>
#include <QObject>

namespace vn::account {

/// Permissions that the account service grants a consumer.
///
/// A permission is one 32-bit value that combines operation bits with object-type bits; the values
/// are the service's wire format and never change. Consumer::hasPermission() answers whether the
/// signed-in user holds a combination.
class VANTROACCOUNT_EXPORT Permission : public QObject
{
    Q_OBJECT

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

    explicit Permission(QObject *parent = nullptr);
    ~Permission() override;

private:
    Q_DISABLE_COPY(Permission)
};

} // namespace vn::account

Q_DECLARE_OPERATORS_FOR_FLAGS(vn::account::Permission::PermissionFlags)

import QtQuick 2.15
import QtTest 1.2
import Vantro.Account 1.0

// Ada holds the permissions 0x23, 0x4f, 0x11 and 0x20001 and the roles admin and author.
TestCase {
    name: "Elements"

    Account { id: account }
    CredentialAuthenticator { id: ada; userName: "ada@example.com"; password: "ada-demo-password" }
    Component { id: permission; Permission {} }
    Component { id: role; Role {} }

    function test_presence_data() {
        return [
            { tag: "read consumers", require: Permission.ReadPermission | Permission.ConsumerType,
              roles: ["admin"], present: true },
            { tag: "journal, both roles", require: Permission.Journal | Permission.ReadPermission,
              roles: ["author", "admin"], present: true },
            { tag: "delete consumers", require: Permission.DeletePermission | Permission.ConsumerType,
              roles: ["admin", "viewer"], present: false }
        ]
    }

    function test_presence(row) {
        var byPermission = createTemporaryObject(permission, this, { require: row.require })
        var byRole = createTemporaryObject(role, this, { require: row.roles })
        if (account.status !== Account.Connected) {
            compare(byPermission.present, false)
            compare(byRole.present, false)
            account.login(ada)
            tryCompare(account, "status", Account.Connected)
        }
        tryVerify(function() { return account.consumer !== null })
        compare(account.consumer.name, "Ada Lovelace")
        tryCompare(byPermission, "present", row.present)
        compare(byRole.present, row.present)
    }

    function cleanupTestCase() {
        account.logout()
        tryCompare(account, "status", Account.Disconnected)
    }
}

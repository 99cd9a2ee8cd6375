import QtQuick 2.15
import QtTest 1.2
import Vantro.Account 1.0

// The module as an application's QML sees it; the rules behind each element are tested in C++.
TestCase {
    name: "Module"
    // Bound as a view binds them: a change shows only when it is notified.
    property bool mayRead: readConsumers.present
    property bool isAuthor: journalRoles.present

    Account { id: account }
    CredentialAuthenticator { id: ada; userName: "ada@example.com"; password: "ada-demo-password" }
    ChallengeResponseAuthenticator { id: device }
    Permission { id: documented; require: (Permission.DeletePermission | Permission.ConsumerType) }
    Permission { id: readConsumers }
    Permission { id: deleteConsumers }
    Role { id: journalRoles; require: ["author", "admin"] }
    PasswordReset { id: reset }
    SignalSpy { id: resetFinished; target: reset; signalName: "finished" }
    Component { id: loginList; LoginListModel {} }
    Repeater {
        id: rows
        delegate: Item {
            property string loginId: sessionId
            property string host: hostInfo
            property bool current: currentSession
        }
    }

    // Runs first, as it needs nobody signed in: 201 for a user the service knows.
    function test_reset() {
        reset.email = "bob@example.com"
        reset.requestReset()
        verify(reset.busy)
        resetFinished.wait()
        compare(resetFinished.signalArguments[0][0], 201)
        verify(!reset.busy)
    }

    // Signed in as Ada, the elements follow her, and the list shows her logins, this client's own
    // marked, and ends the other one.
    function test_signedIn() {
        readConsumers.require = Permission.ReadPermission | Permission.ConsumerType
        deleteConsumers.require = Permission.DeletePermission | Permission.ConsumerType
        verify(!mayRead && !isAuthor)
        ignoreWarning(/Cannot read the key file .*no-such-key.pem/)
        verify(!device.loadPrivateKey(Qt.resolvedUrl("no-such-key.pem")))
        verify(device.loadPrivateKey(devService.deviceKeyFile))
        account.login(ada)
        tryCompare(account, "status", Account.Connected)
        tryVerify(function() { return mayRead && isAuthor })
        compare(deleteConsumers.present, false)
        // Written as the documentation writes it: in parentheses, or Qt compiles "Type.A | Type.B"
        // on an enumeration property as the assignment of the last name.
        compare(documented.require, Permission.DeletePermission | Permission.ConsumerType)
        compare(account.consumer.name, "Ada Lovelace")

        verify(devService.logInElsewhere())
        rows.model = createTemporaryObject(loginList, this)
        tryCompare(rows, "count", 2)
        var own = rows.itemAt(0).current ? rows.itemAt(0) : rows.itemAt(1)
        var other = rows.itemAt(0).current ? rows.itemAt(1) : rows.itemAt(0)
        verify(own.current && !other.current)
        compare(own.loginId, account.session.identifier)
        compare(other.host, "elsewhere")
        rows.model.deleteLogin(other.loginId)
        tryCompare(rows, "count", 1)
        compare(devService.loginCount(), 1)

        account.logout()
        tryCompare(account, "status", Account.Disconnected)
        tryVerify(function() { return !mayRead })
    }
}

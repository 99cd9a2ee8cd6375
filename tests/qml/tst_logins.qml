import QtQuick 2.15
import QtTest 1.2
import Vantro.Account 1.0

// Signed in with the demo device's key file, the list shows Ada's logins, this client's own
// marked, and ends the other one.
TestCase {
    name: "Logins"

    Account { id: account }
    ChallengeResponseAuthenticator { id: device }
    Component { id: loginList; LoginListModel {} }
    Repeater {
        id: rows
        delegate: Item {
            property string loginId: sessionId
            property string host: hostInfo
            property bool current: currentSession
            property bool pending: deletePending
        }
    }

    function test_endAnotherLogin() {
        ignoreWarning(/Cannot read the key file .*no-such-key.pem/)
        verify(!device.loadPrivateKey(Qt.resolvedUrl("no-such-key.pem")))
        verify(device.loadPrivateKey(devService.deviceKeyFile))
        account.login(device)
        tryCompare(account, "status", Account.Connected)
        devService.logInElsewhere()
        tryVerify(function() { return devService.loginCount() === 2 })

        rows.model = createTemporaryObject(loginList, this)
        tryCompare(rows, "count", 2)
        var own = rows.itemAt(0).current ? rows.itemAt(0) : rows.itemAt(1)
        var other = rows.itemAt(0).current ? rows.itemAt(1) : rows.itemAt(0)
        verify(own.current && !other.current)
        compare(own.loginId, account.session.identifier)
        compare(other.host, "elsewhere")

        rows.model.deleteLogin(other.loginId)
        tryCompare(rows, "count", 1)
        verify(rows.itemAt(0).current)
        compare(devService.loginCount(), 1)
    }

    function cleanupTestCase() {
        account.logout()
        tryCompare(account, "status", Account.Disconnected)
    }
}

import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Vantro.Account 1.0

ApplicationWindow {
    id: window
    width: 1200
    height: 820
    visible: true
    title: qsTr("Vantro Account example")
    color: "#eef2f6"

    // For --screenshot: the signed-in account with its data and logins is on screen (or, without
    // --user, the sign-in page).
    readonly property bool settled: startUser.length > 0 ? pages.currentIndex === 1 && accountPage.complete
                                                         : pages.currentIndex === 0
    property string errorText: ""
    property bool usingKey: false

    function errorMessage(error) {
        switch (error) {
        case Account.AlreadyLoggedIn: return qsTr("You are already signed in.")
        case Account.AlreadyBusy: return qsTr("A sign-in is already under way. Please wait a moment.")
        case Account.InvalidLoginData:
            return usingKey ? qsTr("The key file could not be used for signing in.")
                            : qsTr("Please enter your e-mail address and your password.")
        case Account.AuthenticationFailed:
            return usingKey ? qsTr("The account service does not know this device's key.")
                            : qsTr("The e-mail address or the password is not right. Please check them and try again.")
        case Account.ServiceFailure: return qsTr("The account service has a problem right now. Please try again later.")
        case Account.ServiceUnavailable:
            return qsTr("The account service cannot be reached. Check your network connection and try again.")
        case Account.NotLoggedIn: return qsTr("You are not signed in.")
        default: return ""
        }
    }

    function signInWithPassword(user, password) {
        errorText = ""
        usingKey = false
        credentials.userName = user
        credentials.password = password
        account.login(credentials)
    }

    function signInWithKey(keyFile, passphrase) {
        errorText = ""
        usingKey = true
        if (!device.loadPrivateKey(keyFile, passphrase)) {
            errorText = qsTr("The key file could not be read. Check the path and the passphrase.")
            return
        }
        account.login(device)
    }

    Account {
        id: account
        onError: window.errorText = window.errorMessage(error)
    }
    CredentialAuthenticator { id: credentials }
    ChallengeResponseAuthenticator { id: device }

    header: ToolBar {
        implicitHeight: 40
        background: Rectangle { color: "#24466b" }
        RowLayout {
            anchors.fill: parent
            anchors.leftMargin: 16
            anchors.rightMargin: 8
            Label {
                text: qsTr("Vantro Account")
                color: "white"
                font.pixelSize: 18
                font.bold: true
                Layout.fillWidth: true
            }
            Label {
                color: "#dbe6f2"
                text: {
                    switch (account.status) {
                    case Account.Connected: return account.online ? qsTr("Connected · online") : qsTr("Connected · offline")
                    case Account.Connecting: return qsTr("Signing in…")
                    case Account.Disconnecting: return qsTr("Signing out…")
                    default: return qsTr("Signed out")
                    }
                }
            }
            ToolButton {
                text: qsTr("Sign out")
                visible: account.status === Account.Connected
                onClicked: account.logout()
                contentItem: Label { text: parent.text; color: "white" }
            }
        }
    }

    StackLayout {
        id: pages
        anchors.fill: parent
        currentIndex: account.status === Account.Connected || account.status === Account.Disconnecting ? 1 : 0

        SignInPage {
            busy: account.status === Account.Connecting
            errorText: window.errorText
            onPasswordSignIn: window.signInWithPassword(user, password)
            onKeySignIn: window.signInWithKey(keyFile, passphrase)
        }
        Loader {
            id: accountLoader
            active: pages.currentIndex === 1
            sourceComponent: AccountPage {}
        }
    }
    // The page, once it is loaded; a stand-in before.
    property var accountPage: accountLoader.item ? accountLoader.item : ({ complete: false })

    Component.onCompleted: {
        if (startUser.length > 0) {
            signInWithPassword(startUser, startPassword)
        }
    }
}

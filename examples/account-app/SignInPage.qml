import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Vantro.Account 1.0

// Sign in with a password or with this device's key file, or ask for a new password.
Item {
    id: page
    property bool busy: false
    property string errorText: ""
    signal passwordSignIn(string user, string password)
    signal keySignIn(url keyFile, string passphrase)

    ColumnLayout {
        width: Math.min(parent.width - 40, 560)
        anchors.horizontalCenter: parent.horizontalCenter
        y: 30
        spacing: 16

        Card {
            title: qsTr("Sign in")

            TabBar {
                id: method
                Layout.fillWidth: true
                TabButton { text: qsTr("Password") }
                TabButton { text: qsTr("Device key") }
            }
            StackLayout {
                currentIndex: method.currentIndex
                Layout.fillWidth: true

                ColumnLayout {
                    TextField { id: user; placeholderText: qsTr("E-mail address"); Layout.fillWidth: true }
                    TextField {
                        id: password
                        placeholderText: qsTr("Password")
                        echoMode: TextInput.Password
                        Layout.fillWidth: true
                        onAccepted: signInWithPassword.clicked()
                    }
                    Button {
                        id: signInWithPassword
                        text: qsTr("Sign in")
                        enabled: !page.busy
                        onClicked: {
                            page.passwordSignIn(user.text, password.text)
                            password.text = ""
                        }
                    }
                }
                ColumnLayout {
                    Label {
                        text: qsTr("The key file of this device (a PEM file), and its passphrase if it has one.")
                        wrapMode: Text.WordWrap
                        Layout.fillWidth: true
                    }
                    TextField { id: keyFile; placeholderText: qsTr("Path of the key file"); Layout.fillWidth: true }
                    TextField {
                        id: passphrase
                        placeholderText: qsTr("Passphrase (if any)")
                        echoMode: TextInput.Password
                        Layout.fillWidth: true
                    }
                    Button {
                        text: qsTr("Sign in with the device key")
                        enabled: !page.busy && keyFile.text.length > 0
                        onClicked: {
                            page.keySignIn(keyFile.text, passphrase.text)
                            passphrase.text = ""
                        }
                    }
                }
            }
            BusyIndicator { running: page.busy; visible: running; implicitHeight: 28; implicitWidth: 28 }
            Label {
                text: page.errorText
                visible: text.length > 0
                color: "#a12a2a"
                wrapMode: Text.WordWrap
                Layout.fillWidth: true
            }
        }

        PasswordResetForm {}
    }
}

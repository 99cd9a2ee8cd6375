import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Vantro.Account 1.0

// Asks the account service to send a link for a new password; needs nobody to be signed in.
Card {
    title: qsTr("Forgot your password?")

    function outcome(status) {
        switch (status) {
        case 201: return qsTr("We have sent an e-mail with a link to choose a new password to %1.").arg(reset.email)
        case 404: return qsTr("We do not know the e-mail address %1. Please check it.").arg(reset.email)
        case 0: return qsTr("The account service cannot be reached. Check your network connection and try again.")
        default: return qsTr("The password reset did not work this time (the service answered %1). Please try again later.").arg(status)
        }
    }

    PasswordReset {
        id: reset
        onFinished: {
            message.text = outcome(status)
            message.color = status === 201 ? "#1b6e35" : "#a12a2a"
        }
    }

    Label {
        text: qsTr("Enter the e-mail address you sign in with.")
        wrapMode: Text.WordWrap
        Layout.fillWidth: true
    }
    RowLayout {
        Layout.fillWidth: true
        TextField {
            id: email
            placeholderText: qsTr("E-mail address")
            Layout.fillWidth: true
            onAccepted: send.clicked()
        }
        Button {
            id: send
            text: qsTr("Send reset link")
            enabled: !reset.busy && email.text.length > 0
            onClicked: {
                message.text = ""
                reset.email = email.text
                reset.requestReset()
            }
        }
    }
    BusyIndicator { running: reset.busy; visible: running; implicitHeight: 28; implicitWidth: 28 }
    Label { id: message; wrapMode: Text.WordWrap; Layout.fillWidth: true; visible: text.length > 0 }
}

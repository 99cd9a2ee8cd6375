import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15
import Vantro.Account 1.0

// Everything the account holds while signed in.
ScrollView {
    id: page
    property string message: ""
    // True once the account's data and its logins are shown.
    readonly property bool complete: account.consumer !== null && account.identity !== null
                                     && account.resources.length > 0 && logins.count > 0
    clip: true
    contentWidth: availableWidth

    function serviceStatus(status) {
        switch (status) {
        case 0: return qsTr("Off")
        case 1: return qsTr("Getting access…")
        case 2: return qsTr("Ready")
        default: return ""
        }
    }
    // The account's services, among all its resources.
    readonly property var services: {
        var found = []
        for (var index = 0; index < account.resources.length; ++index) {
            if (account.resources[index].type === "vantro.resource.Service") {
                found.push(account.resources[index])
            }
        }
        return found
    }
    function shortType(type) { return type.replace("vantro.resource.", "") }
    function identityChain(identity) {
        var names = []
        for (var link = identity; link; link = link.parent) {
            names.unshift(link.name)
        }
        return names
    }

    // Every Account object shows the same, one account of the process.
    Account { id: account }
    Permission { id: readConsumers; require: (Permission.ReadPermission | Permission.ConsumerType) }
    Permission { id: deleteAccounts; require: (Permission.DeletePermission | Permission.AccountType) }
    Role { id: admin; require: ["admin"] }
    // Made once the session is known, so that the list marks this device's own login at once; a
    // list made earlier would mark it at its next poll, a minute later.
    property LoginListModel loginList: null
    Component {
        id: loginListComponent
        LoginListModel {
            onDeleteFailed: page.message = qsTr("That login could not be ended. Please try again.")
        }
    }
    Connections {
        target: account
        function onSessionChanged() { page.makeLoginList() }
    }
    function makeLoginList() {
        if (account.session && !loginList) {
            loginList = loginListComponent.createObject(page)
        }
    }
    Component.onCompleted: makeLoginList()

    GridLayout {
        width: page.availableWidth - 24
        x: 12
        y: 12
        columns: 3
        columnSpacing: 12
        rowSpacing: 12

        Card {
            title: qsTr("You")
            Layout.preferredWidth: 1
            Label {
                objectName: "userName"
                text: account.consumer ? account.consumer.name : ""
                font.pixelSize: 22
                font.bold: true
            }
            Label { text: account.consumer ? account.consumer.email : ""; color: "#4d5b6b" }
            Label {
                text: qsTr("Roles: %1").arg(account.consumer ? account.consumer.roles.join(", ") : "")
                wrapMode: Text.WordWrap
                Layout.fillWidth: true
            }
            RowLayout {
                Rectangle { width: 10; height: 10; radius: 5; color: account.online ? "#2e9d52" : "#b0b7c0" }
                Label {
                    text: (account.status === Account.Connected ? qsTr("Signed in") : qsTr("Signing out"))
                          + " · " + (account.online ? qsTr("online") : qsTr("offline"))
                }
            }
            Button {
                text: qsTr("Staff directory")
                visible: readConsumers.present
                ToolTip.visible: hovered
                ToolTip.text: qsTr("Shown to users who may read consumers")
            }
            Button {
                text: qsTr("Administration")
                visible: admin.present
                ToolTip.visible: hovered
                ToolTip.text: qsTr("Shown to users with the role admin")
            }
            Label {
                text: qsTr("You may not delete accounts.")
                visible: !deleteAccounts.present
                color: "#4d5b6b"
            }
        }

        Card {
            title: qsTr("Identity chain")
            Layout.preferredWidth: 1
            Repeater {
                model: page.identityChain(account.identity)
                delegate: Label {
                    text: (index === 0 ? "" : "↳ ") + modelData
                    leftPadding: index * 16
                    font.bold: index === 0
                }
            }
            Label {
                text: qsTr("No identity chain yet")
                visible: !account.identity
                color: "#4d5b6b"
            }
        }

        Card {
            title: qsTr("Services")
            Layout.preferredWidth: 1
            Label { text: qsTr("No services"); visible: page.services.length === 0; color: "#4d5b6b" }
            Repeater {
                model: page.services
                delegate: RowLayout {
                    Layout.fillWidth: true
                    ColumnLayout {
                        spacing: 0
                        Layout.fillWidth: true
                        Label { text: modelData.name || ""; font.bold: true }
                        Label {
                            text: (modelData.url || "") + " · " + page.serviceStatus(modelData.status)
                            color: "#4d5b6b"
                            font.pixelSize: 12
                        }
                    }
                    Switch {
                        checked: modelData.enabled === true
                        onToggled: {
                            checked ? modelData.enable() : modelData.disable()
                            // The service decides; the switch keeps following it.
                            checked = Qt.binding(function() { return modelData.enabled === true })
                        }
                    }
                }
            }
        }

        Card {
            title: qsTr("Resources")
            Layout.columnSpan: 2
            Layout.preferredWidth: 2
            Repeater {
                model: account.resources
                delegate: RowLayout {
                    Layout.fillWidth: true
                    Label { text: page.shortType(modelData.type); font.bold: true; Layout.preferredWidth: 150 }
                    Label {
                        text: modelData.uuid
                        color: "#4d5b6b"
                        font.family: "monospace"
                        font.pixelSize: 12
                        Layout.fillWidth: true
                        elide: Text.ElideRight
                    }
                    Label {
                        text: modelData.valid ? qsTr("verified") : qsTr("not verified")
                        color: modelData.valid ? "#1b6e35" : "#a12a2a"
                    }
                }
            }
        }

        Card {
            title: qsTr("Logins")
            Layout.rowSpan: 2
            Layout.preferredWidth: 1
            ListView {
                id: logins
                model: loginList
                interactive: false
                spacing: 6
                Layout.fillWidth: true
                implicitHeight: contentHeight
                delegate: RowLayout {
                    width: ListView.view.width
                    ColumnLayout {
                        spacing: 0
                        Layout.fillWidth: true
                        Label {
                            text: currentSession ? qsTr("This device") : hostInfo
                            font.bold: currentSession
                            elide: Text.ElideRight
                            Layout.fillWidth: true
                        }
                        Label {
                            text: qsTr("since %1").arg(Qt.formatDateTime(activeSince, "d MMM yyyy, hh:mm"))
                            color: "#4d5b6b"
                            font.pixelSize: 12
                        }
                    }
                    Button {
                        text: deletePending ? qsTr("Ending…") : qsTr("End")
                        visible: !currentSession
                        enabled: !deletePending
                        onClicked: {
                            page.message = ""
                            loginList.deleteLogin(sessionId)
                        }
                    }
                }
            }
            Label {
                text: page.message
                visible: text.length > 0
                color: "#a12a2a"
                wrapMode: Text.WordWrap
                Layout.fillWidth: true
            }
        }

        PasswordResetForm {
            Layout.columnSpan: 2
            Layout.preferredWidth: 2
        }
    }
}

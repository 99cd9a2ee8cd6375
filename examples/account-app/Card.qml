import QtQuick 2.15
import QtQuick.Controls 2.15
import QtQuick.Layouts 1.15

// One titled panel of the window.
GroupBox {
    default property alias content: column.data
    Layout.fillWidth: true
    Layout.alignment: Qt.AlignTop
    padding: 14
    topPadding: 34
    label: Label {
        x: 14
        y: 8
        text: parent.title
        font.bold: true
        font.pixelSize: 15
        color: "#24466b"
    }
    background: Rectangle {
        color: "#ffffff"
        border.color: "#d5dce5"
        radius: 6
    }

    ColumnLayout {
        id: column
        anchors.fill: parent
        spacing: 8
    }
}

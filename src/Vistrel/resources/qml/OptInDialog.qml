import QtQuick

// The opt-in question over a Qt Quick window: modal, with the service's texts; Return accepts,
// Escape declines.
Rectangle {
    id: root
    objectName: "vistrelOptInDialog"
    anchors.fill: parent
    z: 10000001
    color: "#80000000"
    focus: true

    property string title
    property string message
    property string acceptText
    property string declineText

    signal accepted()
    signal rejected()

    Keys.onEscapePressed: root.rejected()
    Keys.onReturnPressed: root.accepted()
    Keys.onEnterPressed: root.accepted()

    component DialogButton: Rectangle {
        id: button
        property alias text: label.text
        property bool primary: false
        signal clicked()
        implicitWidth: Math.max(88, label.implicitWidth + 24)
        implicitHeight: 40
        radius: 6
        color: area.pressed ? (primary ? "#0a4fa0" : "#d0d0d0") : (primary ? "#1565c0" : "#e8e8e8")
        Text {
            id: label
            anchors.centerIn: parent
            color: button.primary ? "white" : "black"
            font.pixelSize: 15
        }
        MouseArea {
            id: area
            anchors.fill: parent
            onClicked: button.clicked()
        }
    }

    // Nothing beneath takes a tap, a wheel or a hover while the question is open.
    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.AllButtons
        hoverEnabled: true
        onWheel: wheel => wheel.accepted = true
    }

    Rectangle {
        anchors.centerIn: parent
        width: Math.min(parent.width - 32, 420)
        height: column.implicitHeight + 32
        radius: 8
        color: "white"
        Column {
            id: column
            x: 16
            y: 16
            width: parent.width - 32
            spacing: 12
            Text {
                objectName: "title"
                width: parent.width
                visible: text !== ""
                text: root.title
                font.bold: true
                font.pixelSize: 18
                wrapMode: Text.Wrap
            }
            Text {
                objectName: "message"
                width: parent.width
                visible: text !== ""
                text: root.message
                font.pixelSize: 15
                wrapMode: Text.Wrap
            }
            Row {
                anchors.right: parent.right
                spacing: 8
                DialogButton {
                    objectName: "declineButton"
                    text: root.declineText
                    onClicked: root.rejected()
                }
                DialogButton {
                    objectName: "acceptButton"
                    primary: true
                    text: root.acceptText
                    onClicked: root.accepted()
                }
            }
        }
    }
}

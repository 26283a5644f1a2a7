import QtQuick

// The co-browse panel over a Qt Quick window, as the widgets one: a dark panel against the right
// edge, a third of the way down, with the share id and hide, chat and close buttons; hidden, it
// folds to a show button. Outside the panel every tap goes through to the app.
Item {
    id: root
    objectName: "vistrelCoBrowsePanel"
    anchors.fill: parent
    z: 10000000

    property string shareIdText
    property bool chatActivated: false
    property bool collapsed: false

    signal closeRequested()
    signal chatRequested()

    component PanelButton: Rectangle {
        id: button
        property alias text: label.text
        signal clicked()
        implicitWidth: Math.max(44, label.implicitWidth + 20)
        implicitHeight: 44
        radius: 8
        color: area.pressed ? "#505050" : "#303030"
        Text {
            id: label
            anchors.centerIn: parent
            color: "white"
            font.pixelSize: 18
        }
        MouseArea {
            id: area
            anchors.fill: parent
            onClicked: button.clicked()
        }
    }

    Rectangle {
        id: panel
        objectName: "panel"
        anchors.right: parent.right
        y: Math.round((parent.height - height) / 3)
        width: row.implicitWidth + 8
        height: row.implicitHeight + 8
        // Rounded on the left only: the right edge sits on the window's.
        radius: 10
        color: "#262626"
        Rectangle {
            anchors.right: parent.right
            width: parent.radius
            height: parent.height
            color: parent.color
        }
        // The panel takes its own taps, as the widget's panel does.
        MouseArea {
            anchors.fill: parent
        }
        Row {
            id: row
            x: 4
            y: 4
            spacing: 4
            PanelButton {
                objectName: "showButton"
                text: "‹"
                visible: root.collapsed
                onClicked: root.collapsed = false
            }
            PanelButton {
                objectName: "hideButton"
                text: "›"
                visible: !root.collapsed
                onClicked: root.collapsed = true
            }
            Text {
                objectName: "shareId"
                visible: !root.collapsed
                anchors.verticalCenter: parent.verticalCenter
                leftPadding: 10
                rightPadding: 10
                text: root.shareIdText
                color: "white"
                font.bold: true
                font.pixelSize: 18
            }
            PanelButton {
                objectName: "chatButton"
                text: "Chat"
                visible: !root.collapsed && root.chatActivated
                onClicked: root.chatRequested()
            }
            PanelButton {
                objectName: "closeButton"
                text: "✕"
                visible: !root.collapsed
                onClicked: root.closeRequested()
            }
        }
    }
}

import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts

// The screen after signing in: a list of accounts, a way to the settings and back to sign-in.
Page {
    id: page

    signal settingsRequested
    signal signOutRequested

    // The screen's name, for the kit.
    objectName: "ListPage"
    padding: 24

    ColumnLayout {
        anchors.fill: parent

        Label {
            text: qsTr("Accounts")
            font.pixelSize: 24
            font.bold: true
        }

        ListView {
            Layout.fillWidth: true
            Layout.fillHeight: true
            clip: true
            currentIndex: -1
            model: [
                "Everyday account    2,140.50",
                "Savings account    18,902.00",
                "Credit card    -312.75",
                "Travel fund    1,250.00",
                "Joint account    4,031.20"
            ]

            // Large rows are easy to tap on a phone-sized screen and on the console's image.
            delegate: ItemDelegate {
                required property string modelData
                required property int index

                width: ListView.view.width
                padding: 12
                text: modelData
                highlighted: ListView.isCurrentItem
                onClicked: ListView.view.currentIndex = index
            }
        }

        RowLayout {
            Button {
                objectName: "signOutButton"
                text: qsTr("Sign out")
                onClicked: page.signOutRequested()
            }
            Item {
                Layout.fillWidth: true
            }
            Button {
                objectName: "settingsButton"
                text: qsTr("Settings")
                onClicked: page.settingsRequested()
            }
        }
    }
}

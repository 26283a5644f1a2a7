import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import VistrelDemo

// A few settings, and a field that attaches a free text tag to the session for the agent.
Page {
    id: page

    signal backRequested

    function sendTag() {
        if (tag.text.trim().length === 0)
            return;
        // The agent sees the tag beside the session; the kit logs it when no session runs.
        DemoSession.tag(tag.text);
        tag.clear();
    }

    // The screen's name, for the kit.
    objectName: "SettingsPage"
    padding: 24

    ColumnLayout {
        anchors.fill: parent
        spacing: 16

        Label {
            text: qsTr("Settings")
            font.pixelSize: 24
            font.bold: true
        }

        GridLayout {
            Layout.fillWidth: true
            columns: 2

            CheckBox {
                Layout.columnSpan: 2
                text: qsTr("Notifications")
                checked: true
            }
            CheckBox {
                Layout.columnSpan: 2
                text: qsTr("Paper statements")
            }

            Label {
                text: qsTr("Language")
            }
            ComboBox {
                Layout.fillWidth: true
                model: ["English", "Deutsch", "Français"]
            }

            Label {
                text: qsTr("Session tag")
            }
            RowLayout {
                TextField {
                    id: tag

                    objectName: "sessionTag"
                    Layout.fillWidth: true
                    placeholderText: qsTr("e.g. needs help with transfers")
                    onAccepted: page.sendTag()
                }
                Button {
                    objectName: "tagSessionButton"
                    text: qsTr("Tag session")
                    onClicked: page.sendTag()
                }
            }
        }

        Item {
            Layout.fillHeight: true
        }

        RowLayout {
            Button {
                objectName: "backButton"
                text: qsTr("Back")
                onClicked: page.backRequested()
            }
            Item {
                Layout.fillWidth: true
            }
        }
    }
}

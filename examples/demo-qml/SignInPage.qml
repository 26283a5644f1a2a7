import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import VistrelDemo

// The sign-in screen: user name, a password field private by tag and on the device, and a card
// number field private on the device. Signing in only changes the page; there is no account
// behind it.
Page {
    id: page

    signal signedIn

    // The screen's name, for the kit.
    objectName: "SignInPage"
    padding: 24

    ColumnLayout {
        anchors.fill: parent
        spacing: 16

        Label {
            text: qsTr("Sign in")
            font.pixelSize: 24
            font.bold: true
        }

        GridLayout {
            Layout.fillWidth: true
            columns: 2

            // Filled in, so that the console shows at once that the private fields are masked.
            Label {
                text: qsTr("User name")
            }
            TextField {
                Layout.fillWidth: true
                text: "alex.morgan"
            }

            Label {
                text: qsTr("Password")
            }
            TextField {
                // Private by tag too, as the service lists this number among its private tags.
                property int vistrelTag: DemoSession.passwordTag

                Layout.fillWidth: true
                text: "correct horse"
                // Private on the device, as its echo mode hides the text.
                echoMode: TextInput.Password
            }

            Label {
                text: qsTr("Card number")
            }
            CardNumberEdit {
                Layout.fillWidth: true
                text: "4111 1111 1111 1111"
            }
        }

        // At the foot of the page, as on a phone.
        Item {
            Layout.fillHeight: true
        }

        SolidButton {
            objectName: "signInButton"
            Layout.fillWidth: true
            Layout.minimumWidth: 200
            Layout.preferredHeight: 56
            text: qsTr("Sign in")
            fill: "#1f6feb"
            font.pixelSize: 20
            onClicked: page.signedIn()
        }
    }
}

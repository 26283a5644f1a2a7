import QtQuick.Controls.Basic
import QtQuick.Layouts
import VistrelDemo

// The demo's window: the pages in a stack above the session panel.
ApplicationWindow {
    // A phone-sized window, so the agent's view looks like a phone screen.
    width: 480
    height: 800
    visible: true
    title: qsTr("Vistrel demo")

    ColumnLayout {
        anchors.fill: parent
        spacing: 0

        StackView {
            id: pages

            Layout.fillWidth: true
            Layout.fillHeight: true
            initialItem: signInPage
        }

        SessionPanel {
            Layout.fillWidth: true
        }
    }

    // The pages live as long as the window, as the widgets demo's do, so what was typed stays.
    SignInPage {
        id: signInPage

        visible: false
        onSignedIn: {
            pages.replace(listPage);
            DemoSession.signIn();
        }
    }

    ListPage {
        id: listPage

        visible: false
        onSettingsRequested: pages.push(settingsPage)
        onSignOutRequested: pages.replace(signInPage)
    }

    SettingsPage {
        id: settingsPage

        visible: false
        onBackRequested: pages.pop()
    }
}

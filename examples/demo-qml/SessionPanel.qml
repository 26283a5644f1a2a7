import QtQuick
import QtQuick.Controls.Basic
import QtQuick.Layouts
import VistrelDemo

// The always visible bar that starts and stops the screen session and co-browsing, opens the web
// chat, queues the user for a video call, and shows the share id, whether the screen is being
// recorded and where the call stands.
Frame {
    GridLayout {
        anchors.fill: parent
        columns: 2

        // Each cell of one column has the same preferred width, so the two columns share the
        // bar equally whatever the texts.
        Label {
            objectName: "sessionState"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: {
                switch (DemoSession.state) {
                case DemoSession.Unreachable:
                    return qsTr("◌ Service unreachable, retrying…");
                case DemoSession.Connected:
                    return qsTr("● Connected");
                case DemoSession.CoBrowsing:
                    return qsTr("● Co-browsing");
                case DemoSession.StartFailed:
                    return qsTr("○ Start failed: ") + DemoSession.startError;
                default:
                    return qsTr("○ Not connected");
                }
            }
            color: {
                switch (DemoSession.state) {
                case DemoSession.Unreachable:
                    return "#b54708";
                case DemoSession.Connected:
                case DemoSession.CoBrowsing:
                    return "#1a7f37";
                case DemoSession.StartFailed:
                    return "#b42318";
                default:
                    return palette.windowText;
                }
            }
            font.bold: DemoSession.connected
            elide: Text.ElideRight
        }
        // Selectable, so that the user can copy the id to send it.
        TextEdit {
            objectName: "shareId"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            readOnly: true
            selectByMouse: true
            text: qsTr("Share id: ") + (DemoSession.shareId === "" ? "–" : DemoSession.shareId)
        }

        Button {
            objectName: "startSessionButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: qsTr("Start session")
            enabled: DemoSession.canStart
            onClicked: DemoSession.start()
        }
        // Stopping stays possible at any time: a session can run without recording yet (the
        // service decides), and stopping an idle one only logs a warning.
        Button {
            objectName: "stopSessionButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: qsTr("Stop session")
            onClicked: DemoSession.stop()
        }

        Button {
            objectName: "startCoBrowsingButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: qsTr("Start co-browsing")
            enabled: DemoSession.canStartCoBrowsing
            onClicked: DemoSession.coBrowse()
        }
        Button {
            objectName: "stopCoBrowsingButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: qsTr("Stop co-browsing")
            onClicked: DemoSession.stopCoBrowsing()
        }

        SolidButton {
            objectName: "chatButton"
            Layout.columnSpan: 2
            Layout.fillWidth: true
            Layout.minimumHeight: 40
            text: qsTr("Chat")
            fill: "#e8590c"
            enabled: !DemoSession.chatOpen
            onClicked: DemoSession.chat()
        }

        // The kit tells the host only queue positions: the agent's "Start call" in the console
        // gives the customer position 0, on which the app opens the call itself.
        SolidButton {
            objectName: "videoCallButton"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            Layout.minimumHeight: 40
            text: qsTr("Video call")
            fill: "#7b2cbf"
            enabled: DemoSession.canJoinCall
            onClicked: DemoSession.videoCall()
        }
        Label {
            objectName: "callState"
            Layout.fillWidth: true
            Layout.preferredWidth: 1
            text: {
                switch (DemoSession.callState) {
                case DemoSession.Joining:
                    return qsTr("Joining the queue…");
                case DemoSession.Queued:
                    return qsTr("Queue position %1").arg(DemoSession.queuePosition);
                case DemoSession.Calling:
                    return qsTr("Your agent is calling…");
                case DemoSession.InCall:
                    return qsTr("In call");
                case DemoSession.Ended:
                    return qsTr("Call ended");
                case DemoSession.NotQueued:
                    return qsTr("Not in the queue");
                default:
                    return "";
                }
            }
        }
    }
}

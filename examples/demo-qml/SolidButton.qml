import QtQuick
import QtQuick.Controls.Basic

// A flat button of one solid colour, without border or rounded corners: a colour nothing else on
// screen uses makes the button easy to find in the streamed image.
Button {
    id: control

    required property color fill

    font.bold: true

    background: Rectangle {
        color: control.enabled ? control.fill : "#9aa3ad"
    }

    contentItem: Text {
        text: control.text
        font: control.font
        color: "white"
        horizontalAlignment: Text.AlignHCenter
        verticalAlignment: Text.AlignVCenter
        elide: Text.ElideRight
    }
}

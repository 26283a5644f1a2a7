import QtQuick
import QtQuick.Controls.Basic

// A text field for a payment card number. vistrelPrivate keeps it (with all it holds) out of
// every screenshot: the kit paints it black on the device, whatever the service declares. The
// type is named after the widgets demo's class, which the service lists as private by name.
TextField {
    property bool vistrelPrivate: true

    // Digits, and spaces to group them as they are printed on the card.
    validator: RegularExpressionValidator {
        regularExpression: /[0-9 ]{0,23}/
    }
    placeholderText: "1234 5678 9012 3456"
    inputMethodHints: Qt.ImhDigitsOnly
}

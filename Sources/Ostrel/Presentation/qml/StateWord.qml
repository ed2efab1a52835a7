pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A state in a word, in the colour of its light.
Rectangle {
    id: root

    required property int light
    property alias text: label.text

    implicitWidth: label.implicitWidth + 16
    implicitHeight: 20
    radius: 10
    color: light < 3 ? Qt.alpha(Theme.lights[light], Theme.dark ? 0.16 : 0.13) : "transparent"

    Text {
        id: label

        anchors.centerIn: parent
        textFormat: Text.PlainText
        color: Theme.lightTexts[root.light]
        font.pixelSize: Theme.captionSize
        font.weight: Font.Medium
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A question mark: in a bubble, or in a ring.
Item {
    id: root

    required property color color
    property bool bubble: false

    implicitWidth: 20
    implicitHeight: 20
    Accessible.ignored: true

    Rectangle {
        visible: root.bubble
        x: 4.6
        y: 11.5
        width: 6
        height: 6
        rotation: 20
        color: root.color
        antialiasing: true
    }

    Rectangle {
        x: root.bubble ? 0 : 1
        y: root.bubble ? 1 : 1
        width: root.bubble ? 20 : 18
        height: root.bubble ? 15 : 18
        radius: root.bubble ? 5 : 9
        color: root.bubble ? root.color : "transparent"
        border.width: root.bubble ? 0 : 1.6
        border.color: root.color
        antialiasing: true

        Text {
            anchors.centerIn: parent
            text: "?"
            textFormat: Text.PlainText
            color: root.bubble ? (Theme.dark ? "#22262e" : "#ffffff") : root.color
            font.pixelSize: 12
            font.weight: Font.Bold
        }
    }
}

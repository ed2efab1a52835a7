import QtQuick
import Ostrel

// A button with a title.
Item {
    id: root

    required property string text
    property bool prominent: false

    signal chosen

    objectName: "pushButton"
    implicitWidth: label.implicitWidth + 26
    implicitHeight: 28
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.onPressAction: chosen()
    Keys.onReturnPressed: chosen()
    Keys.onEnterPressed: chosen()
    Keys.onSpacePressed: chosen()

    Rectangle {
        anchors.fill: parent
        radius: 8
        color: root.prominent ? Theme.link : Theme.hovered
        border.width: root.activeFocus ? 2 : root.prominent ? 0 : 1
        border.color: root.activeFocus ? Theme.selection : Theme.hairline
    }

    Rectangle {
        anchors.fill: parent
        radius: 8
        visible: hover.hovered || tap.pressed
        color: tap.pressed ? Theme.pressed : Theme.hovered
    }

    Text {
        id: label

        anchors.centerIn: parent
        text: root.text
        color: root.prominent ? (Theme.dark ? "#10151d" : "#ffffff") : Theme.text
        font.pixelSize: Theme.bodySize - 1
        font.weight: Font.Medium
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.chosen()
    }
}

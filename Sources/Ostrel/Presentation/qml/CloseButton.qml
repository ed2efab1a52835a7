import QtQuick
import Ostrel

// Closes a window.
Item {
    id: root

    signal chosen

    objectName: "closeButton"
    implicitWidth: 26
    implicitHeight: 26
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: "Close"
    Accessible.onPressAction: chosen()
    Keys.onReturnPressed: chosen()
    Keys.onSpacePressed: chosen()

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: tap.pressed ? Theme.pressed : hover.hovered || root.activeFocus ? Theme.hovered : "transparent"
    }

    Repeater {
        model: [45, -45]

        Rectangle {
            required property int modelData

            anchors.centerIn: parent
            width: 11
            height: 1.5
            radius: 1
            rotation: modelData
            antialiasing: true
            color: hover.hovered ? Theme.text : Theme.secondary
        }
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.chosen()
    }
}

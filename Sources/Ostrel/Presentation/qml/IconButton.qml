pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A small round button with a symbol.
Item {
    id: root

    required property string symbol
    required property string name

    signal chosen

    objectName: "iconButton"
    implicitWidth: 26
    implicitHeight: 26
    opacity: enabled ? 1 : 0.4
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: name
    Accessible.onPressAction: chosen()
    Keys.onReturnPressed: chosen()
    Keys.onEnterPressed: chosen()
    Keys.onSpacePressed: chosen()

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: tap.pressed ? Theme.pressed : hover.hovered || root.activeFocus ? Theme.hovered : "transparent"
    }

    Symbol {
        anchors.fill: parent
        symbol: root.symbol
        ink: hover.hovered || root.activeFocus ? Theme.text : Theme.secondary
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.chosen()
    }
}

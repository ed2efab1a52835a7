pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The window's lower left corner, by which it is made larger.
Item {
    id: root

    required property ConversationBridge bridge

    objectName: "resizeCorner"
    width: 18
    height: 18
    Accessible.ignored: true

    Repeater {
        model: 2

        Rectangle {
            required property int index

            x: 4
            y: 12 - 5 * index
            width: 6 + 7 * index
            height: 1.4
            radius: 0.7
            rotation: 45
            transformOrigin: Item.Left
            antialiasing: true
            color: Theme.tertiary
            opacity: hover.hovered || drag.active ? 1 : 0.45
        }
    }

    HoverHandler {
        id: hover

        cursorShape: Qt.SizeBDiagCursor
    }

    DragHandler {
        id: drag

        target: null
        onActiveChanged: if (active) root.bridge.beginResize()
        onTranslationChanged: if (active) root.bridge.resize()
    }
}

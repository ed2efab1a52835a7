pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// What Codex asks in a conversation, in order of arrival, under how the connection stands.
Column {
    id: root

    required property RequestsBridge bridge
    property real cardHeight: Infinity  // the highest that one may be
    readonly property real statusHeight: status.visible ? status.height + (cards.count > 0 ? spacing : 0) : 0
    readonly property alias count: cards.count
    property int generation: 0  // of its cards

    function cardAt(index: int): CardFrame {
        return cards.itemAt(index) as CardFrame;
    }

    objectName: "codexRequestList"
    spacing: Theme.gap
    Accessible.role: Accessible.List
    Accessible.name: "Codex"

    CodexControlsStatus {
        id: status

        width: root.width
        visible: root.bridge.controls !== ""
        bridge: root.bridge
    }

    Repeater {
        id: cards

        model: root.bridge.codex
        onItemAdded: ++root.generation
        onItemRemoved: ++root.generation

        CodexRequestCard {
            width: root.width
            maximumHeight: root.cardHeight
            takesKeys: root.bridge.keyCard === card
        }
    }
}

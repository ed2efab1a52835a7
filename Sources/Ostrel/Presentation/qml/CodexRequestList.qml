pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// What Codex asks in a conversation, in order of arrival, under how the connection stands.
Column {
    id: root

    required property RequestsBridge bridge

    objectName: "codexRequestList"
    spacing: Theme.gap
    Accessible.role: Accessible.List
    Accessible.name: "Codex"

    CodexControlsStatus {
        width: root.width
        visible: root.bridge.controls !== ""
        bridge: root.bridge
    }

    Repeater {
        model: root.bridge.codex

        CodexRequestCard {
            width: root.width
        }
    }
}

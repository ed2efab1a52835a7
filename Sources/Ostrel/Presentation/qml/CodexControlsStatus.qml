pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Whether what Codex asks can be answered here.
Item {
    id: root

    required property RequestsBridge bridge

    objectName: "codexControlsStatus"
    implicitHeight: words.implicitHeight

    NotchLight {
        x: 4
        y: 3
        light: root.bridge.connected ? 2 : 3
    }

    Column {
        id: words

        x: 24
        width: parent.width - 24
        spacing: 2

        CardText {
            text: root.bridge.controls
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }

        CardText {
            text: root.bridge.controlsError
            color: Theme.failure
            font.pixelSize: Theme.captionSize
        }
    }
}

import QtQuick
import Ostrel

// The panel: a surface with the page that is open.
Item {
    id: root

    required property SelectorBridge bridge
    readonly property rect surface: Qt.rect(Theme.margin, Theme.margin, width - 2 * Theme.margin, height - 2 * Theme.margin)
    readonly property real surfaceRadius: Theme.panelRadius
    readonly property color surfaceColor: Theme.surfaceBottom

    objectName: "ostrelView"

    Glass {
        x: root.surface.x
        y: root.surface.y
        width: root.surface.width
        height: root.surface.height

        AgentSelectorPanel {
            anchors.fill: parent
            bridge: root.bridge
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The panel: a surface with the page that is open.
Item {
    id: root

    required property PanelBridge bridge
    readonly property rect surface: Qt.rect(Theme.margin, Theme.margin, width - 2 * Theme.margin, height - 2 * Theme.margin)
    readonly property real surfaceRadius: Theme.panelRadius
    readonly property color surfaceColor: Theme.surfaceBottom

    objectName: "ostrelView"

    Glass {
        x: root.surface.x
        y: root.surface.y
        width: root.surface.width
        height: root.surface.height

        Loader {
            id: page

            function turn() {
                setSource(root.bridge.view, {
                    bridge: root.bridge.page,
                    title: root.bridge.title
                });
            }

            anchors.fill: parent
            focus: true
            Component.onCompleted: turn()
        }
    }

    Connections {
        target: root.bridge

        function onPageChanged() {
            page.turn();
        }
    }
}

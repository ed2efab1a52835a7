pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The column that comes out of the handle: rows of the most urgent agents, and one for the list of all.
Item {
    id: root

    required property RailBridge bridge
    readonly property rect surface: Qt.rect(4, bridge.offset, width - 8, bridge.contentHeight)
    readonly property real surfaceRadius: Theme.railRadius
    readonly property color surfaceColor: Theme.surfaceBottom

    objectName: "railView"
    Accessible.role: Accessible.List
    Accessible.name: "Agents"

    HoverHandler {
        onHoveredChanged: if (!hovered) root.bridge.left()
    }

    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: root.bridge.menu()
    }

    Glass {
        id: surface

        property real entrance: root.bridge.expanded ? 1 : 0

        x: root.surface.x + 10 * (1 - entrance)
        y: root.surface.y
        width: root.surface.width
        height: root.surface.height
        radius: Theme.railRadius
        shadow: 4
        opacity: Math.min(1, entrance)

        Behavior on entrance {
            enabled: Theme.motion

            Spring {
                response: 0.26
            }
        }
    }

    Repeater {
        model: root.bridge.items

        RailRow {
            required property int place
            required property int extent

            x: root.surface.x
            y: root.bridge.offset + place
            height: extent
            width: root.surface.width
            expanded: root.bridge.expanded
            breathing: root.bridge.breathing && root.bridge.expanded
            delay: root.bridge.expanded && index >= 0 ? root.bridge.entranceDelay(index) : 0
            onChosen: key => root.bridge.open(key)
            onHovered: (key, inside) => root.bridge.hover(key, inside)
            onRested: (key, place) => root.bridge.rest(key, place)
        }
    }
}

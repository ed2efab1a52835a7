pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The handle at the edge: the lights of the most urgent agents, and the number of the others.
Item {
    id: root

    required property NotchBridge bridge
    readonly property rect surface: Qt.rect(0, 0, width + Theme.notchRadius, height)
    readonly property real surfaceRadius: Theme.notchRadius
    readonly property color surfaceColor: Theme.surfaceBottom

    objectName: "edgeNotchView"
    clip: true
    Accessible.role: Accessible.Button
    Accessible.name: "Ostrel. " + bridge.summary
    Accessible.description: "Show agents"
    Accessible.onPressAction: bridge.open()

    HoverHandler {
        onHoveredChanged: if (hovered) root.bridge.entered()
    }

    TapHandler {
        acceptedButtons: Qt.LeftButton
        onTapped: root.bridge.open()
    }

    TapHandler {
        acceptedButtons: Qt.RightButton
        onTapped: root.bridge.menu()
    }

    Glass {
        id: handle

        // Its right corners lie beyond the screen.
        width: root.width + Theme.notchRadius
        height: root.height
        radius: Theme.notchRadius
        shadow: 0
        outline: Theme.strongBorder
        x: root.bridge.away ? root.width : 0

        Behavior on x {
            enabled: Theme.motion

            Spring {
                response: root.bridge.away ? 0.22 : 0.35
                dampingFraction: root.bridge.away ? 0.82 : 1
            }
        }

        Column {
            x: Math.floor((root.width - Theme.lightSize) / 2)
            anchors.verticalCenter: parent.verticalCenter
            spacing: Theme.lightPitch - Theme.lightSize

            Repeater {
                model: root.bridge.lights

                NotchLight {
                    breathing: root.bridge.breathing && !root.bridge.away
                }
            }

            BoxedText {
                objectName: "notchMore"
                visible: root.bridge.more > 0
                x: (Theme.lightSize - width) / 2
                width: root.width - 4
                text: "+" + root.bridge.more
                color: Theme.secondary
                font.pixelSize: Theme.captionSize - 2
            }
        }

        // A grip, while there is no light to show.
        Rectangle {
            visible: root.bridge.lights.count === 0
            x: (root.width - width) / 2
            anchors.verticalCenter: parent.verticalCenter
            width: 4
            height: 24
            radius: 2
            color: Theme.tertiary
            opacity: 0.6
        }
    }
}

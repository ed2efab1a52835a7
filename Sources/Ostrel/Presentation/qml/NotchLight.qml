pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// One agent's light. Its shape says what its colour says: a disc with a mark needs the person, a ring works, a
// tick is done, a small dot is idle. While `breathing` is asked for, one that needs the person moves.
Item {
    id: root

    required property int light
    property bool breathing: false
    readonly property bool follows: breathing && visible && Theme.motion && light === 0 && Window.visibility !== Window.Hidden
    readonly property real phase: follows ? Pulse.phase : 0

    implicitWidth: Theme.lightSize
    implicitHeight: Theme.lightSize

    Rectangle {
        anchors.centerIn: parent
        visible: root.light === 0
        width: Theme.lightSizes[0] + 2 + 10 * root.phase
        height: width
        radius: width / 2
        color: Theme.lights[0]
        // Thinner as it grows, so that neighbours stay apart.
        opacity: 0.24 - 0.16 * root.phase
    }

    Rectangle {
        id: body

        anchors.centerIn: parent
        visible: root.light !== 2
        width: Theme.lightSizes[root.light]
        height: width
        radius: width / 2
        antialiasing: true
        color: root.light === 1 ? "transparent" : Theme.lights[root.light]
        border.width: root.light === 1 ? 2 : 0
        border.color: Theme.lights[root.light]
        opacity: 1 - 0.2 * root.phase
    }

    Repeater {
        model: root.light === 0 ? 1 : 0

        Item {
            anchors.centerIn: parent
            width: 3
            height: 9

            Rectangle {
                x: 0.5
                width: 2
                height: 5.5
                radius: 1
                color: Theme.lightInk
            }
            Rectangle {
                x: 0.5
                y: 7
                width: 2
                height: 2
                radius: 1
                color: Theme.lightInk
            }
        }
    }

    Repeater {
        model: root.light === 2 ? 1 : 0

        Item {
            anchors.centerIn: parent
            width: 11
            height: 11

            Rectangle {
                x: 0.3
                y: 6.2
                width: 5.2
                height: 2.2
                radius: 1.1
                rotation: 45
                antialiasing: true
                color: Theme.lights[2]
            }
            Rectangle {
                x: 2.4
                y: 4.7
                width: 9
                height: 2.2
                radius: 1.1
                rotation: -52
                antialiasing: true
                color: Theme.lights[2]
            }
        }
    }

    onFollowsChanged: Pulse.followers += follows ? 1 : -1
    Component.onDestruction: if (follows) Pulse.followers -= 1
}

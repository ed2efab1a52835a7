pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// One agent's light. It pulses while its agent works or waits, and somebody can see it.
Item {
    id: root

    required property int light
    property bool animating: true
    readonly property bool pulsing: animating && visible && Theme.motion && light < 2 && Window.visibility !== Window.Hidden
    readonly property real phase: pulsing ? Pulse.phase : 0

    implicitWidth: Theme.lightSize
    implicitHeight: Theme.lightSize

    Rectangle {
        readonly property real reach: 2 + 8 * root.phase

        anchors.fill: parent
        anchors.margins: -reach
        visible: root.light < 3
        radius: width / 2
        color: Theme.lights[root.light]
        // Thinner as it grows, so that neighbours stay apart.
        opacity: 0.22 - 0.16 * root.phase
    }

    Rectangle {
        anchors.fill: parent
        radius: width / 2
        color: Theme.lights[root.light]
        opacity: 1 - 0.25 * root.phase
        scale: 1 - 0.08 * root.phase

        Behavior on color {
            enabled: Theme.motion

            ColorAnimation {
                duration: Theme.quick
            }
        }
    }

    onPulsingChanged: Pulse.followers += pulsing ? 1 : -1
    Component.onDestruction: if (pulsing) Pulse.followers -= 1
}

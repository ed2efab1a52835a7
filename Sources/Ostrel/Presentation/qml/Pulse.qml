pragma Singleton
pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The beat of all lights that pulse: one for all, in steps as coarse as the eye lets pass, since somebody
// works for most of the day. It stands still while no light follows it.
QtObject {
    id: pulse

    property int followers: 0
    readonly property real phase: (1 - Math.cos(2 * Math.PI * step / steps)) / 2

    readonly property int steps: 16
    property int step: 0
    readonly property Timer beat: Timer {
        interval: Theme.pulse / pulse.steps
        repeat: true
        running: pulse.followers > 0
        onTriggered: pulse.step = (pulse.step + 1) % pulse.steps
    }
}

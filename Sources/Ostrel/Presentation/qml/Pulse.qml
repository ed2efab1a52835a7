pragma Singleton
pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The beat of all lights that breathe: one for all, twelve frames a second, since each wakes the program and
// paints. It stands still while no light follows it.
QtObject {
    id: pulse

    property int followers: 0
    readonly property real phase: (1 - Math.cos(2 * Math.PI * step / steps)) / 2

    readonly property int steps: Math.round(Theme.pulse / beat.interval)
    property int step: 0
    readonly property Timer beat: Timer {
        interval: 1000 / 12
        repeat: true
        running: pulse.followers > 0
        onTriggered: pulse.step = (pulse.step + 1) % pulse.steps
        onRunningChanged: if (!running) pulse.step = 0
    }
}

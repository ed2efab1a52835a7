pragma ComponentBehavior: Bound
import QtQuick

// A spring by its response (seconds of an undamped swing) and damping (1: no overshoot).
SpringAnimation {
    id: animation

    required property real response
    property real dampingFraction: 1
    readonly property real frequency: 2 * Math.PI / response

    // The engine counts in steps of 16 milliseconds.
    spring: frequency * frequency * 0.016
    damping: 2 * dampingFraction * frequency * 0.016
    epsilon: 0.005
}

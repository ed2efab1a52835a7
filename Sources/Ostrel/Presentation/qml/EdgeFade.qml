pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Lets a list fade out at the end beyond which it goes on.
Rectangle {
    id: root

    property bool atTop: false
    readonly property color clear: Qt.alpha(Theme.surfaceBottom, 0)

    height: 22
    gradient: Gradient {
        GradientStop {
            position: 0
            color: root.atTop ? Theme.surfaceBottom : root.clear
        }
        GradientStop {
            position: 1
            color: root.atTop ? root.clear : Theme.surfaceBottom
        }
    }
    Accessible.ignored: true
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Shows which control has the keyboard; `around` a shape of that radius.
Rectangle {
    property int around: Theme.controlRadius

    anchors.fill: parent
    anchors.margins: -2
    radius: around + 2
    color: "transparent"
    border.width: 2
    border.color: Qt.alpha(Theme.accent, 0.55)
    antialiasing: true
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The quiet surface that every window is made of.
Item {
    id: glass

    property int radius: Theme.panelRadius
    property int shadow: Theme.margin
    property bool solid: false  // nothing shows through
    property color outline: Theme.border
    default property alias content: inside.data

    // A soft shadow of nested outlines, each barely there.
    Repeater {
        model: Theme.shadows ? glass.shadow : 0

        Rectangle {
            required property int index

            anchors.fill: parent
            anchors.margins: -(index + 1)
            anchors.topMargin: -index
            z: -1
            color: "transparent"
            radius: glass.radius + index + 1
            border.width: 1
            border.color: Qt.rgba(0, 0.03, 0.1, (Theme.dark ? 0.2 : 0.1) * Math.pow(1 - (index + 1) / (glass.shadow + 1), 2))
        }
    }

    Rectangle {
        anchors.fill: parent
        radius: glass.radius
        border.width: 1
        border.color: glass.outline
        gradient: Gradient {
            GradientStop {
                position: 0
                color: glass.solid ? Qt.alpha(Theme.surfaceTop, 1) : Theme.surfaceTop
            }
            GradientStop {
                position: 1
                color: glass.solid ? Qt.alpha(Theme.surfaceBottom, 1) : Theme.surfaceBottom
            }
        }
    }

    // Light that falls on the upper edge.
    Rectangle {
        x: glass.radius
        y: 1
        width: glass.width - 2 * glass.radius
        height: 1
        color: Theme.gleam
    }

    Item {
        id: inside

        anchors.fill: parent
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A drawn symbol: "more", "find", "previous", "next", "end", "copy", "close", "terminal".
Item {
    id: root

    required property string symbol
    required property color ink

    // Three dots.
    Row {
        visible: root.symbol === "more"
        anchors.centerIn: parent
        spacing: 3

        Repeater {
            model: 3

            Rectangle {
                width: 3
                height: 3
                radius: 1.5
                color: root.ink
            }
        }
    }

    // A glass and its handle.
    Item {
        visible: root.symbol === "find"
        anchors.centerIn: parent
        width: 13
        height: 13

        Rectangle {
            width: 9
            height: 9
            radius: 4.5
            color: "transparent"
            antialiasing: true
            border.width: 1.5
            border.color: root.ink
        }
        Rectangle {
            x: 7.2
            y: 8.9
            width: 5.5
            height: 1.6
            radius: 0.8
            rotation: 45
            antialiasing: true
            color: root.ink
        }
    }

    // An angle that points up or down; with a line below it, to the end.
    Item {
        visible: root.symbol === "previous" || root.symbol === "next" || root.symbol === "end"
        anchors.centerIn: parent
        width: 12
        height: 8
        rotation: root.symbol === "previous" ? 180 : 0

        Rectangle {
            x: 0.4
            y: 3
            width: 7
            height: 1.6
            radius: 0.8
            rotation: 45
            antialiasing: true
            color: root.ink
        }
        Rectangle {
            x: 4.6
            y: 3
            width: 7
            height: 1.6
            radius: 0.8
            rotation: -45
            antialiasing: true
            color: root.ink
        }
        Rectangle {
            visible: root.symbol === "end"
            x: 1
            y: 9
            width: 10
            height: 1.6
            radius: 0.8
            color: root.ink
        }
    }

    // A prompt in a window.
    Rectangle {
        visible: root.symbol === "terminal"
        anchors.centerIn: parent
        width: 15
        height: 12
        radius: 3
        color: "transparent"
        border.width: 1.3
        border.color: root.ink

        Rectangle {
            x: 2.6
            y: 3.9
            width: 4
            height: 1.3
            rotation: 45
            antialiasing: true
            color: root.ink
        }
        Rectangle {
            x: 2.6
            y: 6.3
            width: 4
            height: 1.3
            rotation: -45
            antialiasing: true
            color: root.ink
        }
        Rectangle {
            x: 7.6
            y: 8
            width: 4
            height: 1.3
            color: root.ink
        }
    }

    // Two sheets.
    Item {
        visible: root.symbol === "copy"
        anchors.centerIn: parent
        width: 12
        height: 13

        Rectangle {
            x: 3.5
            width: 8
            height: 9
            radius: 2
            color: "transparent"
            border.width: 1.2
            border.color: root.ink
        }
        Rectangle {
            y: 3.5
            width: 8
            height: 9
            radius: 2
            color: Theme.surfaceBottom
            border.width: 1.2
            border.color: root.ink
        }
    }

    Repeater {
        model: root.symbol === "close" ? [45, -45] : []

        Rectangle {
            required property int modelData

            anchors.centerIn: parent
            width: 11
            height: 1.5
            radius: 1
            rotation: modelData
            antialiasing: true
            color: root.ink
        }
    }
}

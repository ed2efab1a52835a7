pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A raised hand: something waits for a yes or a no.
Item {
    id: root

    required property color color

    implicitWidth: 20
    implicitHeight: 20
    Accessible.ignored: true

    // Four fingers, a pixel between them, from the forefinger to the little one.
    Repeater {
        model: [3, 1, 2, 5]

        Rectangle {
            required property int index
            required property int modelData

            x: 4 + 4 * index
            y: modelData
            width: 3
            height: 12 - modelData
            radius: 1.5
            color: root.color
            antialiasing: true
        }
    }

    // The palm, square where the fingers leave it, and the thumb.
    Rectangle {
        x: 4
        y: 9
        width: 15
        height: 11
        radius: 5.5
        color: root.color
        antialiasing: true
    }

    Rectangle {
        x: 4
        y: 10
        width: 15
        height: 4
        color: root.color
    }

    Rectangle {
        x: 2.4
        y: 9.2
        width: 3.2
        height: 8.6
        radius: 1.6
        rotation: -36
        color: root.color
        antialiasing: true
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The mark of a box that is ticked.
Item {
    Item {
        x: parent.width * 0.33
        y: parent.height * 0.17
        width: parent.width * 0.32
        height: parent.height * 0.56
        rotation: 42

        Rectangle {
            anchors.right: parent.right
            width: 2
            height: parent.height
            radius: 1
            color: Theme.accentText
            antialiasing: true
        }

        Rectangle {
            anchors.bottom: parent.bottom
            width: parent.width
            height: 2
            radius: 1
            color: Theme.accentText
            antialiasing: true
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A key and what it does.
Row {
    id: root

    required property string keys
    required property string meaning

    height: parent ? parent.height : implicitHeight
    spacing: 6
    Accessible.role: Accessible.StaticText
    Accessible.name: keys + " " + meaning

    Rectangle {
        anchors.verticalCenter: parent.verticalCenter
        width: cap.implicitWidth + 12
        height: 18
        radius: 5
        color: Theme.hovered
        border.width: 1
        border.color: Theme.hairline

        Text {
            id: cap

            anchors.centerIn: parent
            text: root.keys
            textFormat: Text.PlainText
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }
    }

    Text {
        anchors.verticalCenter: parent.verticalCenter
        text: root.meaning
        textFormat: Text.PlainText
        color: Theme.tertiary
        font.pixelSize: Theme.captionSize
    }
}

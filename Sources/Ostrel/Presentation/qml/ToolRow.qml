pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Something that the agent ran, or runs.
Item {
    id: root

    required property string text
    required property bool running

    objectName: "toolRow"
    readonly property real naturalWidth: width
    implicitHeight: Math.max(20, line.implicitHeight + 4)

    NotchLight {
        visible: root.running
        x: 5
        y: 6
        light: 1
    }

    Rectangle {
        visible: !root.running
        x: 7
        y: 8
        width: 5
        height: 5
        radius: 2.5
        color: Theme.tertiary
    }

    Text {
        id: line

        x: 22
        width: root.width - 22
        anchors.verticalCenter: parent.verticalCenter
        text: root.text
        color: root.running ? Theme.text : Theme.secondary
        textFormat: Text.PlainText
        elide: Text.ElideRight
        maximumLineCount: 3
        wrapMode: Text.WrapAnywhere
        font.family: Theme.fixedFamily
        font.pixelSize: Theme.captionSize
    }
}

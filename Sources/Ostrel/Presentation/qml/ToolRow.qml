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
        x: 2
        y: 6
        scale: 0.7
        light: root.running ? 1 : 3
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

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A setting of a connection: its name and a field.
Item {
    id: root

    required property string label
    required property string placeholder
    required property string text

    signal edited(string text)

    implicitHeight: 34

    Text {
        x: 39
        anchors.verticalCenter: parent.verticalCenter
        text: root.label
        textFormat: Text.PlainText
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
    }

    TextEntry {
        x: 144
        width: parent.width - x - 14
        anchors.verticalCenter: parent.verticalCenter
        label: root.label
        placeholder: root.placeholder
        text: root.text
        onEdited: text => root.edited(text)
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A value in one line behind its name.
Item {
    id: root

    required property string label
    required property string value

    implicitHeight: words.implicitHeight
    Accessible.role: Accessible.StaticText
    Accessible.name: label + ": " + value

    Text {
        id: name

        text: root.label
        textFormat: Text.PlainText
        color: Theme.tertiary
        font.pixelSize: Theme.captionSize
    }

    Text {
        id: words

        anchors.left: name.right
        anchors.leftMargin: Theme.gap
        anchors.right: parent.right
        text: root.value
        textFormat: Text.PlainText
        color: Theme.secondary
        elide: Text.ElideMiddle
        font.pixelSize: Theme.captionSize
    }
}

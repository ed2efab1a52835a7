pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// An agent of the list: its light, its title, where it runs, and its state in words.
Item {
    id: root

    required property string key
    required property string title
    required property string subtitle
    required property string status
    required property int light
    required property bool selected

    signal chosen(string key)
    signal hovered(string key, bool inside)

    objectName: "agentRow"
    height: Theme.rowHeight
    Accessible.role: Accessible.ListItem
    Accessible.name: title + ", " + subtitle + ", " + status
    Accessible.selected: selected
    Accessible.onPressAction: chosen(key)

    Rectangle {
        anchors.fill: parent
        anchors.margins: 2
        radius: Theme.rowRadius
        color: tap.pressed ? Theme.pressed : root.selected ? Theme.chosen : hover.hovered ? Theme.hovered : "transparent"
    }

    NotchLight {
        id: dot

        x: 16
        anchors.verticalCenter: parent.verticalCenter
        light: root.light
    }

    Column {
        anchors.left: dot.right
        anchors.leftMargin: 14
        anchors.right: word.left
        anchors.rightMargin: Theme.spacing
        anchors.verticalCenter: parent.verticalCenter
        spacing: 3

        Text {
            width: parent.width
            text: root.title
            textFormat: Text.PlainText
            color: Theme.text
            elide: Text.ElideRight
            font.pixelSize: Theme.bodySize
            font.weight: Font.Medium
        }

        Text {
            width: parent.width
            text: root.subtitle
            textFormat: Text.PlainText
            color: Theme.secondary
            elide: Text.ElideRight
            font.pixelSize: Theme.captionSize
        }
    }

    StateWord {
        id: word

        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        light: root.light
        text: root.status
    }

    HoverHandler {
        id: hover

        onHoveredChanged: root.hovered(root.key, hovered)
    }

    TapHandler {
        id: tap

        onTapped: root.chosen(root.key)
    }
}

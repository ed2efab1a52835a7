pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// An agent of the list: its light, its title, what it asks or where it runs, its state in words and for how long.
Item {
    id: root

    required property string key
    required property string title
    required property string subtitle
    required property string status
    required property int light
    required property string age
    required property bool asks
    required property bool selected
    required property bool open  // its conversation is shown

    signal chosen(string key)
    signal hovered(string key, bool inside)

    objectName: "agentRow"
    height: Theme.rowHeight
    Accessible.role: Accessible.ListItem
    Accessible.name: title + ", " + subtitle + ", " + status + (age ? ", " + age : "") + (open ? ", open" : "")
    Accessible.selected: selected
    Accessible.onPressAction: chosen(key)

    Rectangle {
        anchors.fill: parent
        anchors.margins: 2
        radius: Theme.rowRadius
        color: tap.pressed ? Theme.pressed : root.selected ? Theme.chosen : hover.hovered ? Theme.hovered : "transparent"
    }

    Rectangle {
        objectName: "openMark"
        visible: root.open
        x: 4
        anchors.verticalCenter: parent.verticalCenter
        width: 3
        height: 26
        radius: 1.5
        color: Theme.accent
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
        anchors.right: state.left
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
            objectName: "rowSubtitle"
            width: parent.width
            text: root.subtitle
            textFormat: Text.PlainText
            color: root.asks ? Theme.lightTexts[0] : Theme.secondary
            elide: Text.ElideRight
            font.pixelSize: Theme.captionSize
        }
    }

    Column {
        id: state

        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter
        spacing: 2

        StateWord {
            anchors.right: parent.right
            light: root.light
            text: root.status
        }

        Text {
            objectName: "rowAge"
            anchors.right: parent.right
            anchors.rightMargin: 8
            visible: text !== ""
            text: root.age
            textFormat: Text.PlainText
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }
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

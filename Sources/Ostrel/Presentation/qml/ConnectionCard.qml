pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A connection: how it stands in a line, further words below, and what can be done about it.
Item {
    id: root

    required property string key
    required property string title
    required property string status
    required property string note
    required property int light
    required property list<string> buttons

    signal chosen(string key, int button)

    objectName: "connection-" + key
    implicitHeight: Math.max(48, words.implicitHeight + 16)
    Accessible.role: Accessible.ListItem
    Accessible.name: title + ", " + status

    NotchLight {
        id: dot

        x: 16
        y: words.y + 4
        light: root.light
    }

    Column {
        id: words

        anchors.left: dot.right
        anchors.leftMargin: 14
        anchors.right: actions.left
        anchors.rightMargin: actions.width > 0 ? Theme.spacing : 0
        y: root.note === "" ? (root.height - implicitHeight) / 2 : 8
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
            objectName: "connectionState"
            width: parent.width
            text: root.status
            textFormat: Text.PlainText
            color: root.light === 3 ? Theme.secondary : Theme.lightTexts[root.light]
            wrapMode: Text.WordWrap
            font.pixelSize: Theme.captionSize
        }

        Text {
            id: note

            visible: root.note !== ""
            width: parent.width
            text: root.note
            textFormat: Text.PlainText
            color: Theme.tertiary
            wrapMode: Text.WordWrap
            font.pixelSize: Theme.captionSize
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }

    Row {
        id: actions

        anchors.right: parent.right
        anchors.rightMargin: 14
        y: words.y + (note.visible ? 3 : (words.implicitHeight - implicitHeight) / 2)
        spacing: 6

        Repeater {
            id: buttons

            model: root.buttons

            PushButton {
                required property string modelData
                required property int index

                objectName: "connectionButton" + index
                text: modelData
                prominent: root.light === 0 && index === buttons.count - 1
                onChosen: root.chosen(root.key, index)
            }
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Looks for words in the conversation: the last place first, then upwards and downwards.
Item {
    id: root

    required property ConversationBridge bridge

    signal closed

    function open() {
        field.forceActiveFocus();
        field.selectAll();
        bridge.findText = field.text;
    }

    objectName: "findBar"
    height: 44
    Component.onCompleted: field.text = bridge.findText

    Rectangle {
        anchors.left: parent.left
        anchors.leftMargin: 14
        anchors.right: count.left
        anchors.rightMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        height: 28
        radius: 7
        color: Theme.hovered
        border.width: 1
        border.color: field.activeFocus ? Theme.link : Theme.hairline

        TextInput {
            id: field

            objectName: "findField"
            anchors.fill: parent
            anchors.leftMargin: 10
            anchors.rightMargin: 10
            verticalAlignment: TextInput.AlignVCenter
            clip: true
            color: Theme.text
            selectionColor: Theme.selection
            selectedTextColor: Theme.text
            selectByMouse: true
            font.pixelSize: Theme.bodySize
            Accessible.role: Accessible.EditableText
            Accessible.name: "Find in conversation"
            onTextChanged: root.bridge.findText = text
            Keys.onUpPressed: root.bridge.findNext(false)
            Keys.onDownPressed: root.bridge.findNext(true)
            Keys.onReturnPressed: event => root.bridge.findNext(!!(event.modifiers & Qt.ShiftModifier))
            Keys.onEnterPressed: event => root.bridge.findNext(!!(event.modifiers & Qt.ShiftModifier))
            Keys.onEscapePressed: root.closed()
        }

        Text {
            visible: field.text === ""
            anchors.fill: field
            verticalAlignment: Text.AlignVCenter
            text: "Find in conversation"
            textFormat: Text.PlainText
            color: Theme.tertiary
            font.pixelSize: Theme.bodySize
            Accessible.ignored: true
        }
    }

    Text {
        id: count

        objectName: "findCount"
        anchors.right: tools.left
        anchors.rightMargin: 6
        anchors.verticalCenter: parent.verticalCenter
        text: field.text.trim() === "" ? "" : root.bridge.findCount === 0 ? "Not found" : (root.bridge.findPlace + 1) + " of " + root.bridge.findCount
        textFormat: Text.PlainText
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }

    Row {
        id: tools

        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: parent.verticalCenter

        IconButton {
            objectName: "findPrevious"
            symbol: "previous"
            name: "Previous"
            enabled: root.bridge.findCount > 0
            onChosen: root.bridge.findNext(false)
        }
        IconButton {
            objectName: "findNext"
            symbol: "next"
            name: "Next"
            enabled: root.bridge.findCount > 0
            onChosen: root.bridge.findNext(true)
        }
        CloseButton {
            objectName: "findClose"
            onChosen: root.closed()
        }
    }
}

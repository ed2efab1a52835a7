pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A field for one line of text. What is typed into a secret one is hidden.
FocusScope {
    id: root

    property string text
    property string placeholder
    property string label: placeholder
    property bool secret: false
    property bool still: false  // no cursor blinks in it while it is empty: it has the keyboard as long as its window

    signal edited(string text)
    signal submitted

    objectName: "textEntry"
    implicitWidth: 200
    implicitHeight: Theme.controlHeight
    opacity: enabled ? 1 : 0.45
    activeFocusOnTab: enabled

    FocusRing {
        visible: root.activeFocus
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.controlRadius
        color: Theme.field
        border.width: 1
        border.color: root.activeFocus ? Theme.accent : Theme.outline
    }

    Text {
        anchors.fill: input
        visible: input.text === "" && input.preeditText === ""
        verticalAlignment: Text.AlignVCenter
        text: root.placeholder
        textFormat: Text.PlainText
        color: Theme.tertiary
        elide: Text.ElideRight
        font.pixelSize: Theme.bodySize
        Accessible.ignored: true
    }

    TextInput {
        id: input

        objectName: "textInput"
        anchors.fill: parent
        anchors.leftMargin: 10
        anchors.rightMargin: 10
        verticalAlignment: TextInput.AlignVCenter
        clip: true
        focus: true
        text: root.text
        color: Theme.text
        selectionColor: Theme.selection
        selectedTextColor: Theme.text
        selectByMouse: true
        echoMode: root.secret ? TextInput.Password : TextInput.Normal
        font.pixelSize: Theme.bodySize
        onTextEdited: root.edited(text)
        onTextChanged: if (root.still) cursorVisible = activeFocus && text !== ""
        onCursorVisibleChanged: if (root.still && text === "" && cursorVisible) cursorVisible = false
        Accessible.role: Accessible.EditableText
        Accessible.name: root.label
        Accessible.passwordEdit: root.secret
        Keys.onReturnPressed: event => {
            root.submitted();
            event.accepted = false;
        }
        Keys.onEnterPressed: event => {
            root.submitted();
            event.accepted = false;
        }
    }

    HoverHandler {
        cursorShape: Qt.IBeamCursor
    }
}

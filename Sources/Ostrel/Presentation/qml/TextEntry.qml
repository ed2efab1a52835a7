import QtQuick
import Ostrel

// A field for one line of text.
FocusScope {
    id: root

    property string text
    property string placeholder
    property string label: placeholder

    signal edited(string text)
    signal submitted

    objectName: "textEntry"
    implicitWidth: 200
    implicitHeight: 30
    activeFocusOnTab: true

    Rectangle {
        anchors.fill: parent
        radius: 8
        color: Theme.code
        border.width: 1
        border.color: root.activeFocus ? Theme.link : Theme.hairline
    }

    Text {
        anchors.fill: input
        visible: input.text === "" && input.preeditText === ""
        verticalAlignment: Text.AlignVCenter
        text: root.placeholder
        color: Theme.tertiary
        elide: Text.ElideMiddle
        font.pixelSize: Theme.bodySize - 1
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
        font.pixelSize: Theme.bodySize - 1
        onTextEdited: root.edited(text)
        onAccepted: root.submitted()
        Accessible.role: Accessible.EditableText
        Accessible.name: root.label
    }
}

import QtQuick
import Ostrel

// Text as it would be run or granted: monospaced, to be selected and copied, scrolled when it is long.
Rectangle {
    id: root

    required property string text
    property string label

    objectName: "detailBlock"
    implicitHeight: Math.min(Theme.detailHeight, edit.implicitHeight + 16)
    radius: Theme.controlRadius
    color: Theme.detail
    border.width: 1
    border.color: edit.activeFocus ? Theme.accent : Theme.hairline

    Flickable {
        id: area

        anchors.fill: parent
        anchors.margins: 1
        contentWidth: width
        contentHeight: edit.implicitHeight + 14
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        TextEdit {
            id: edit

            objectName: "detailText"
            x: 9
            y: 7
            width: area.width - 20
            readOnly: true
            selectByMouse: true
            activeFocusOnTab: true
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.WrapAtWordBoundaryOrAnywhere
            text: root.text
            color: Theme.text
            selectionColor: Theme.selection
            selectedTextColor: Theme.text
            font.family: Theme.fixedFamily
            font.pixelSize: Theme.codeSize
            onCursorRectangleChanged: {
                const top = y + cursorRectangle.y;
                area.contentY = Math.max(Math.min(area.contentY, top - 7), top + cursorRectangle.height + 7 - area.height, 0);
            }
            Accessible.role: Accessible.StaticText
            Accessible.name: root.label ? root.label + ": " + root.text : root.text
            Keys.onReturnPressed: event => event.accepted = false
        }
    }

    ScrollMark {
        view: area
    }
}

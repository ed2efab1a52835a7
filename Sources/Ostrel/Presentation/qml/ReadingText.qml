pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Text that can be read, selected and copied, with its links. Keys other than that for copying go on to the
// window.
TextEdit {
    id: root

    required property ConversationBridge bridge
    required property string content
    property bool markdown: false
    property bool links: true
    property bool fixed: false
    readonly property real naturalWidth: filler.naturalWidth

    signal menuWanted(real x, real y, string selected, string link)

    objectName: "readingText"
    readOnly: true
    selectByMouse: true
    selectByKeyboard: false
    activeFocusOnPress: true
    textFormat: TextEdit.PlainText  // what is shown is put into its document
    wrapMode: TextEdit.Wrap
    color: Theme.text
    selectionColor: Theme.selection
    selectedTextColor: Theme.text
    font.family: fixed ? Theme.fixedFamily : Application.font.family
    font.pixelSize: fixed ? Theme.codeSize : Theme.bodySize
    Accessible.ignored: true  // its row has the words
    onLinkActivated: link => bridge.openLink(link)
    onActiveFocusChanged: if (!activeFocus) deselect()
    Keys.onPressed: event => {
        event.accepted = event.matches(StandardKey.Copy) && selectedText !== "";
        if (event.accepted)
            bridge.copy(selectedText);
    }

    MessageText {
        id: filler

        document: root.textDocument
        text: root.content
        markdown: root.markdown
        links: root.links
        dense: root.fixed
        find: root.bridge.findText
        linkColor: Theme.link
        codeColor: Theme.code
        findColor: Theme.found
    }

    HoverHandler {
        cursorShape: root.hoveredLink !== "" ? Qt.PointingHandCursor : Qt.IBeamCursor
    }

    TapHandler {
        acceptedButtons: Qt.RightButton
        gesturePolicy: TapHandler.ReleaseWithinBounds
        onTapped: event => root.menuWanted(event.position.x, event.position.y, root.selectedText, root.linkAt(event.position.x, event.position.y))
    }
}

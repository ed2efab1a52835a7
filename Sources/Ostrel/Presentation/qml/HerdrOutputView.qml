pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// One agent beside the list: what it is, what was said, its terminal.
Item {
    id: root

    required property ConversationBridge bridge
    readonly property rect surface: Qt.rect(Theme.margin, Theme.margin, width - 2 * Theme.margin, height - 2 * Theme.margin)
    readonly property real surfaceRadius: Theme.panelRadius
    readonly property color surfaceColor: Theme.surfaceBottom
    // What its cards need beside the conversation.
    readonly property real room: cards.count > 0 ? cards.wantedHeight + Theme.spacing : 0
    readonly property bool terminal: bridge.hasTerminal && bridge.showsTerminal
    property bool finding: false

    function find() {
        bridge.showsTerminal = false;
        finding = true;
        findBar.open();
    }

    // The keyboard goes where nothing in particular is typed.
    function rest() {
        (cards.visible ? cards : reader).forceActiveFocus();
    }

    function makeRoom() {
        bridge.makeRoom(room);
    }

    function endFind() {
        finding = false;
        bridge.findText = "";
        rest();
    }

    function toStart() {
        if (terminal)
            terminalOutput.scrollToStart();
        else
            conversation.scrollToStart();
    }

    function scroll(pages: real, lines: real) {
        if (terminal)
            terminalOutput.scroll(pages * terminalOutput.page + lines * 48);
        else
            conversation.scroll(pages * conversation.page + lines * 48);
    }

    // Up and Down read on, with Alt they go to the next agent.
    function move(event: KeyEvent, down: bool) {
        if (event.modifiers & Qt.AltModifier)
            bridge.next(down);
        else
            scroll(0, down ? 1 : -1);
    }

    function openMenu(x: real, y: real, key: string, selected: string, link: string) {
        menu.openAt(x - surface.x, y - surface.y, key, selected, link);
    }

    objectName: "herdrOutputView"
    onRoomChanged: Qt.callLater(makeRoom)
    // A search goes on where a view made anew takes up a conversation.
    Component.onCompleted: {
        finding = bridge.findText !== "";
        rest();
    }

    Connections {
        target: root.bridge

        function onShownAgent() {
            menu.close();
            header.done(false);
            root.rest();
            root.finding = false;
        }
    }

    FocusScope {
        anchors.fill: parent
        focus: true
        Keys.onEscapePressed: root.finding ? root.endFind() : root.bridge.close()
        Keys.onUpPressed: event => root.move(event, false)
        Keys.onDownPressed: event => root.move(event, true)
        Keys.onPressed: event => {
            if (cards.press(event)) {
                event.accepted = true;
                return;
            }
            const shift = !!(event.modifiers & Qt.ShiftModifier);
            const control = !!(event.modifiers & Qt.ControlModifier);
            event.accepted = true;
            if (event.matches(StandardKey.Find))
                root.find();
            else if (event.key === Qt.Key_F3)
                root.bridge.findNext(!shift);
            else if (event.key === Qt.Key_F2)
                header.rename();
            else if (event.key === Qt.Key_Menu || (event.key === Qt.Key_F10 && shift))
                root.openMenu(root.width - 240, header.height, "", "", "");
            else if (event.key === Qt.Key_T && control && root.bridge.hasTerminal)
                root.bridge.showsTerminal = !root.bridge.showsTerminal;
            else if (event.key === Qt.Key_N && !event.isAutoRepeat && (event.modifiers === Qt.NoModifier || event.modifiers === Qt.AltModifier))
                root.bridge.nextWaiting();
            else if (event.key === Qt.Key_PageUp)
                root.scroll(-1, 0);
            else if (event.key === Qt.Key_PageDown)
                root.scroll(1, 0);
            else if (event.key === Qt.Key_Home)
                root.toStart();
            else if (event.key === Qt.Key_End)
                (root.terminal ? terminalOutput : conversation).toEnd();
            else
                event.accepted = false;
        }

        // Has the keyboard while nothing else wants it.
        Item {
            id: reader

            focus: true
        }

        Glass {
            x: root.surface.x
            y: root.surface.y
            width: root.surface.width
            height: root.surface.height

            ConversationHeader {
                id: header

                width: parent.width
                bridge: root.bridge
                onFindWanted: root.finding ? root.endFind() : root.find()
                onMenuWanted: (x, y) => root.openMenu(x + root.surface.x - 200, y + root.surface.y, "", "", "")
                onRenamingChanged: if (!renaming) root.rest()
            }

            SectionSwitch {
                id: sections

                visible: root.bridge.hasTerminal
                y: header.height
                width: parent.width
                bridge: root.bridge
            }

            FindBar {
                id: findBar

                visible: root.finding && !root.terminal
                y: header.height + (sections.visible ? sections.height : 0)
                width: parent.width
                bridge: root.bridge
                onClosed: root.endFind()
            }

            Item {
                id: page

                anchors.fill: parent
                anchors.topMargin: header.height + (sections.visible ? sections.height : 0) + (findBar.visible ? findBar.height : 0)
                anchors.bottomMargin: 8 + (line.visible ? line.height : 0) + (cards.visible ? cards.height + Theme.spacing : 0)

                ConversationList {
                    id: conversation

                    visible: !root.terminal
                    anchors.fill: parent
                    bridge: root.bridge
                    onMenuWanted: (x, y, key, selected, link) => {
                        const place = mapToItem(root, x, y);
                        root.openMenu(place.x, place.y, key, selected, link);
                    }
                }

                TerminalOutput {
                    id: terminalOutput

                    visible: root.terminal
                    anchors.fill: parent
                    bridge: root.bridge
                    onMenuWanted: (x, y, key, selected, link) => {
                        const place = mapToItem(root, x, y);
                        root.openMenu(place.x, place.y, key, selected, link);
                    }
                }

                TapHandler {
                    acceptedButtons: Qt.RightButton
                    gesturePolicy: TapHandler.ReleaseWithinBounds
                    onTapped: event => {
                        const place = page.mapToItem(root, event.position.x, event.position.y);
                        root.openMenu(place.x, place.y, "", "", "");
                    }
                }
            }

            RequestCards {
                id: cards

                anchors.bottom: line.visible ? line.top : parent.bottom
                anchors.bottomMargin: line.visible ? 0 : Theme.spacing
                x: Theme.spacing
                width: parent.width - 2 * Theme.spacing
                height: implicitHeight
                maximumHeight: (parent.height - header.height) * 0.7
                bridge: root.bridge.requests
                // A question is answered by keys at once, unless the person types something else.
                onVisibleChanged: {
                    if (visible ? reader.focus : focus)
                        root.rest();
                }
            }

            // What became of a click, or why nothing newer can be read.
            Text {
                id: line

                objectName: "conversationLine"
                visible: text !== ""
                anchors.bottom: parent.bottom
                anchors.bottomMargin: 8
                x: Theme.readingMargin
                width: parent.width - 2 * Theme.readingMargin
                height: 24
                verticalAlignment: Text.AlignVCenter
                text: root.bridge.message !== "" ? root.bridge.message : root.terminal ? (root.bridge.output.trim() !== "" ? root.bridge.outputError : "") : root.bridge.blocks.count > 0 ? root.bridge.notice : ""
                color: Theme.secondary
                elide: Text.ElideRight
                textFormat: Text.PlainText
                font.pixelSize: Theme.captionSize
                Accessible.role: Accessible.AlertMessage
                Accessible.name: text
            }

            ResizeCorner {
                anchors.left: parent.left
                anchors.bottom: parent.bottom
                bridge: root.bridge
            }

            ConversationMenu {
                id: menu

                anchors.fill: parent
                bridge: root.bridge
                terminal: root.terminal
                onFindWanted: root.find()
                onRenameWanted: header.rename()
                onShown: open => {
                    root.bridge.menuShown(open);
                    if (!open)
                        root.rest();
                }
            }
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// What the agent's terminal shows. It stays at the end while the reader is there.
Item {
    id: root

    required property ConversationBridge bridge

    signal menuWanted(real x, real y, string key, string selected, string link)

    readonly property real page: view.height - 40

    function scroll(by: real) {
        view.contentY = Math.max(0, Math.min(view.contentHeight - view.height, view.contentY + by));
    }
    function toEnd() {
        scroll(view.contentHeight);
    }
    function scrollToStart() {
        scroll(-view.contentHeight);
    }

    Rectangle {
        anchors.fill: parent
        anchors.margins: 12
        radius: 8
        color: Theme.code
        border.width: 1
        border.color: Theme.hairline

        Flickable {
            id: view

            property bool following: true

            objectName: "terminalOutput"
            anchors.fill: parent
            anchors.margins: 10
            clip: true
            boundsBehavior: Flickable.StopAtBounds
            contentWidth: Math.max(width, screen.implicitWidth)
            contentHeight: screen.implicitHeight
            onContentYChanged: following = contentY >= contentHeight - height - 4
            onContentHeightChanged: if (following) contentY = Math.max(0, contentHeight - height)
            onHeightChanged: if (following) contentY = Math.max(0, contentHeight - height)
            Accessible.role: Accessible.Pane
            Accessible.name: "Terminal output"
            Accessible.description: root.bridge.output

            ReadingText {
                id: screen

                bridge: root.bridge
                content: root.bridge.output
                wrapMode: TextEdit.NoWrap
                fixed: true
                onMenuWanted: (x, y, selected, link) => {
                    const place = mapToItem(root, x, y);
                    root.menuWanted(place.x, place.y, "", selected, link);
                }
            }
        }

        ScrollMark {
            view: view
        }
    }

    Text {
        objectName: "terminalWords"
        visible: text !== ""
        anchors.centerIn: parent
        width: parent.width - 96
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        textFormat: Text.PlainText
        text: root.bridge.output.trim() !== "" ? "" : root.bridge.outputError !== "" ? root.bridge.outputError : root.bridge.outputLoaded ? "This terminal has no output yet." : "Loading terminal output…"
        color: Theme.secondary
        font.pixelSize: Theme.bodySize
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
}

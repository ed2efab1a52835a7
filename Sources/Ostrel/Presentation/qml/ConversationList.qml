import QtQuick
import Ostrel

// What was said, oldest first. It follows a conversation that grows while the reader is at its end, and stays
// put while they read above it.
Item {
    id: root

    required property ConversationBridge bridge
    property bool following: true

    signal menuWanted(real x, real y, string key, string selected, string link)

    function toEnd() {
        following = true;
        list.positionViewAtEnd();
    }

    function scroll(by: real) {
        const last = list.originY + list.contentHeight - list.height;
        list.cancelFlick();
        list.contentY = Math.max(list.originY, Math.min(last, list.contentY + by));
        following = list.atYEnd;
    }

    function scrollToStart() {
        list.positionViewAtBeginning();
        following = list.atYEnd;
    }

    readonly property real page: list.height - 40

    ListView {
        id: list

        objectName: "conversation"
        anchors.fill: parent
        header: Item {
            height: 14
        }
        footer: Item {
            height: 16
        }
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        cacheBuffer: 400
        reuseItems: false
        model: root.bridge.blocks
        delegate: ConversationRow {
            width: list.width
            bridge: root.bridge
            onMenuWanted: (x, y, selected, link) => {
                const place = mapToItem(root, x, y);
                root.menuWanted(place.x, place.y, key, selected, link);
            }
        }
        onMovementEnded: root.following = atYEnd
        onContentHeightChanged: if (root.following && !moving) Qt.callLater(list.follow)
        onHeightChanged: if (root.following) Qt.callLater(list.follow)
        onCountChanged: if (root.following) Qt.callLater(list.follow)
        Accessible.role: Accessible.List
        Accessible.name: "Conversation history"

        function follow() {
            if (root.following)
                list.positionViewAtEnd();
        }

        WheelHandler {
            // The list scrolls by itself; this only learns of it, since a wheel ends no movement.
            acceptedDevices: PointerDevice.Mouse | PointerDevice.TouchPad
            target: null
            blocking: false
            onWheel: event => {
                if (event.angleDelta.y > 0)
                    root.following = false;
            }
        }

        Connections {
            target: root.bridge

            function onShownAgent() {
                root.following = true;
                Qt.callLater(list.follow);
            }
            function onWanted(row: int) {
                root.following = false;
                list.positionViewAtIndex(row, ListView.Contain);
            }
        }
    }

    ScrollMark {
        view: list
        onDragged: root.following = list.atYEnd
    }

    Rectangle {
        visible: !root.following && !list.atYEnd
        anchors.right: parent.right
        anchors.rightMargin: 20
        anchors.bottom: parent.bottom
        anchors.bottomMargin: 14
        width: 32
        height: 32
        radius: 16
        color: Theme.surfaceTop
        border.width: 1
        border.color: Theme.border

        IconButton {
            objectName: "toEndButton"
            anchors.centerIn: parent
            symbol: "end"
            name: "To the end of the conversation"
            onChosen: root.toEnd()
        }
    }

    Text {
        objectName: "conversationWords"
        visible: list.count === 0
        anchors.centerIn: parent
        width: parent.width - 96
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WordWrap
        textFormat: Text.PlainText
        text: root.bridge.loading ? "Loading linked conversation…" : root.bridge.notice
        color: Theme.secondary
        font.pixelSize: Theme.bodySize
        lineHeight: 1.25
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }
}

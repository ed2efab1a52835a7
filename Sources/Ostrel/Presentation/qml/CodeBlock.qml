pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Code in a fixed-width font, as wide as it is: it scrolls sideways.
Rectangle {
    id: root

    required property ConversationBridge bridge
    required property string content
    property string language

    signal menuWanted(real x, real y, string selected, string link)

    objectName: "codeBlock"
    readonly property real naturalWidth: code.naturalWidth + 24
    implicitHeight: code.implicitHeight + 20 + head.height
    radius: 8
    color: Theme.code
    border.width: 1
    border.color: Theme.hairline

    Item {
        id: head

        width: parent.width
        height: root.language ? 20 : 0

        Text {
            visible: root.language !== ""
            x: 12
            y: 6
            text: root.language
            color: Theme.tertiary
            textFormat: Text.PlainText
            font.pixelSize: Theme.captionSize
        }
    }

    Flickable {
        anchors.fill: parent
        anchors.topMargin: head.height + 10
        anchors.bottomMargin: 10
        anchors.leftMargin: 12
        anchors.rightMargin: 12
        clip: true
        flickableDirection: Flickable.HorizontalFlick
        boundsBehavior: Flickable.StopAtBounds
        contentWidth: code.naturalWidth + 1
        contentHeight: height

        ReadingText {
            id: code

            bridge: root.bridge
            content: root.content
            wrapMode: TextEdit.NoWrap
            links: false
            fixed: true
            onMenuWanted: (x, y, selected, link) => {
                const place = mapToItem(root, x, y);
                root.menuWanted(place.x, place.y, selected, link);
            }
        }
    }

    Rectangle {
        visible: hover.hovered || copy.activeFocus
        anchors.right: parent.right
        anchors.top: parent.top
        anchors.margins: 4
        width: 26
        height: 26
        radius: 13
        color: Theme.surfaceTop

        IconButton {
            id: copy

            objectName: "copyCodeButton"
            symbol: "copy"
            name: "Copy code"
            onChosen: root.bridge.copy(root.content)
        }
    }

    HoverHandler {
        id: hover
    }
}

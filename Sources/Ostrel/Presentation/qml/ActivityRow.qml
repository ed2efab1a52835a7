import QtQuick
import Ostrel

// A notice of the agent's program: a line that opens.
Item {
    id: root

    required property ConversationBridge bridge
    required property string content
    required property string line
    property bool open: false

    signal menuWanted(real x, real y, string selected, string link)

    objectName: "activityRow"
    readonly property real naturalWidth: width
    implicitHeight: open ? 26 + box.height : 22
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: line
    Accessible.description: open ? "Fold" : "Unfold"
    Accessible.onPressAction: open = !open
    Keys.onReturnPressed: open = !open
    Keys.onEnterPressed: open = !open
    Keys.onSpacePressed: open = !open

    Rectangle {
        width: parent.width
        height: 22
        radius: 6
        color: hover.hovered || root.activeFocus ? Theme.hovered : "transparent"

        Symbol {
            x: -2
            y: -2
            width: 26
            height: 26
            symbol: "next"
            ink: Theme.secondary
            scale: 0.7
            rotation: root.open ? 0 : -90
        }

        Text {
            id: label

            x: 22
            width: parent.width - 30
            anchors.verticalCenter: parent.verticalCenter
            text: root.line
            color: Theme.tertiary
            textFormat: Text.PlainText
            elide: Text.ElideRight
            font.pixelSize: Theme.captionSize
        }

        HoverHandler {
            id: hover
        }

        TapHandler {
            onTapped: root.open = !root.open
        }
    }

    Loader {
        id: box

        active: root.open
        x: 22
        y: 26
        width: parent.width - 22
        sourceComponent: ReadingText {
            bridge: root.bridge
            content: root.content
            color: Theme.secondary
            fixed: true
            font.pixelSize: Theme.captionSize
            wrapMode: TextEdit.WrapAnywhere
            onMenuWanted: (x, y, selected, link) => {
                const place = mapToItem(root, x, y);
                root.menuWanted(place.x, place.y, selected, link);
            }
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The cards for what an agent asks its person. Without any it takes no room; higher than `maximumHeight` it
// scrolls.
FocusScope {
    id: root

    required property RequestsBridge bridge
    property real maximumHeight: Infinity
    readonly property Item focused: Window.activeFocusItem

    // Scrolls until the item, one of the cards' own, is seen.
    function reveal(item: Item) {
        for (let each = item; each !== column; each = each.parent) {
            if (!each)
                return;
        }
        const top = item.mapToItem(column, 0, 0).y;
        const last = Math.max(0, area.contentHeight - area.height);
        const low = top + Math.min(item.height, area.height) + Theme.gap - area.height;
        area.contentY = Math.max(0, Math.min(last, Math.max(low, Math.min(area.contentY, top - Theme.gap))));
    }

    objectName: "requestCards"
    visible: !bridge.empty
    implicitHeight: bridge.empty ? 0 : Math.min(maximumHeight, column.implicitHeight)
    // Where the room for the cards changes, all of them stand elsewhere.
    onYChanged: bridge.settle()
    onHeightChanged: bridge.settle()
    onFocusedChanged: if (focused && focused.height > 0) reveal(focused)

    // Has the keyboard while no answer has it: Return alone allows nothing.
    Item {
        focus: true
        activeFocusOnTab: true
    }

    Flickable {
        id: area

        anchors.fill: parent
        contentWidth: width
        contentHeight: column.implicitHeight
        onContentHeightChanged: root.bridge.settle()
        clip: contentHeight > height
        boundsBehavior: Flickable.StopAtBounds

        Column {
            id: column

            width: area.width
            spacing: Theme.gap

            Repeater {
                model: root.bridge.claude

                ClaudeRequestSlot {
                    width: column.width
                    bridge: root.bridge
                    onWanted: item => root.reveal(item)
                }
            }

            CodexRequestList {
                width: column.width
                bridge: root.bridge
            }
        }
    }

    ScrollMark {
        view: area
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The cards for what an agent asks its person. Without any it takes no room. Where they are higher than
// `maximumHeight` each scrolls inside, above its buttons, and only more cards than fit so scroll as a whole.
FocusScope {
    id: root

    required property RequestsBridge bridge
    property real maximumHeight: Infinity
    readonly property Item focused: Window.activeFocusItem
    readonly property int count: claude.count + codex.count
    // What they would take if nothing had to scroll.
    readonly property real wantedHeight: bridge.empty ? 0 : codex.statusHeight + gaps + cardsHeight
    readonly property real cardsHeight: {
        let sum = 0;
        for (let i = 0; i < frames.length; ++i)
            sum += frames[i].wholeHeight;
        return sum;
    }
    readonly property real gaps: Math.max(0, count - 1) * Theme.gap
    readonly property real cardHeight: wantedHeight <= maximumHeight ? Infinity : Math.max(120, (maximumHeight - codex.statusHeight - gaps - Theme.gap) / Math.max(1, count))
    property int generation: 0  // of the cards
    readonly property list<CardFrame> frames: {
        const all = [];
        if (generation + codex.generation < 0)
            return all;
        for (let i = 0; i < claude.count; ++i) {
            const slot = claude.itemAt(i) as ClaudeRequestSlot;
            if (slot && slot.frame)
                all.push(slot.frame);
        }
        for (let i = 0; i < codex.count; ++i) {
            const card = codex.cardAt(i);
            if (card)
                all.push(card);
        }
        return all;
    }

    // A key that no field wanted; whether it meant something here.
    function press(event: KeyEvent): bool {
        const plain = !(event.modifiers & ~(Qt.ShiftModifier | Qt.KeypadModifier));
        if (!visible || !plain || event.isAutoRepeat)
            return false;
        if (event.key === Qt.Key_PageDown || event.key === Qt.Key_PageUp) {
            for (let i = 0; i < frames.length; ++i) {
                if (frames[i].takesKeys)
                    return frames[i].page(event.key === Qt.Key_PageDown);
            }
            return false;
        }
        return event.key >= Qt.Key_A && event.key <= Qt.Key_Z && bridge.press(String.fromCharCode(event.key));
    }

    // Scrolls until the item, one of the cards' own, is seen.
    function reveal(item: Item) {
        for (let each = item; each !== column; each = each.parent) {
            if (!each)
                return;
            const card = each as CardFrame;
            if (card)
                card.reveal(item);
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

    Keys.onPressed: event => event.accepted = press(event)

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
                id: claude

                model: root.bridge.claude
                onItemAdded: ++root.generation
                onItemRemoved: ++root.generation

                ClaudeRequestSlot {
                    width: column.width
                    bridge: root.bridge
                    maximumHeight: root.cardHeight
                }
            }

            CodexRequestList {
                id: codex

                width: column.width
                bridge: root.bridge
                cardHeight: root.cardHeight
            }
        }
    }

    ScrollMark {
        view: area
    }
}

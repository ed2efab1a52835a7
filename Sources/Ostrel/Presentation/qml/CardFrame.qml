pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The surface of a card: what it is about above, its parts one below the other in the middle, and what a person
// answers with below. Where all of that is higher than `maximumHeight` the middle scrolls alone.
FocusScope {
    id: root

    required property int light  // whose colour its border has
    required property RequestCard request
    property real maximumHeight: Infinity
    // Letters answer this card.
    property bool takesKeys: false
    property alias head: headColumn.data
    default property alias parts: column.data
    property alias footer: footerColumn.data
    readonly property alias partsWidth: column.width
    readonly property real wholeHeight: chrome + column.implicitHeight
    readonly property real chrome: 2 * Theme.cardPadding + headColumn.implicitHeight + footerColumn.implicitHeight + (column.implicitHeight > 0 ? 2 : 1) * Theme.spacing
    // Of the middle's own parts: all of each was on the screen, and one of them is cut short.
    property bool partsSeen: true
    property bool partsCut: false
    // The middle was on the screen down to its end.
    property bool endSeen: false
    property real seenHeight: 0
    readonly property bool wholeSeen: partsSeen && endSeen
    readonly property bool endShown: visible && body.height > 0 && body.contentY + body.height >= column.implicitHeight - 1

    // What is cut short in the middle is to open.
    signal paged

    function look() {
        if (!endShown && column.implicitHeight > 0)
            return;
        seenHeight = column.implicitHeight;
        endSeen = true;
    }

    // Whether there was something to scroll.
    function page(down: bool): bool {
        if (down && partsCut) {
            paged();
            return true;
        }
        const last = Math.max(0, column.implicitHeight - body.height);
        const to = Math.max(0, Math.min(last, body.contentY + (down ? 1 : -1) * Math.max(24, body.height - 24)));
        const moves = to !== body.contentY;
        body.contentY = to;
        return moves;
    }

    // Scrolls until the item, one of the middle's own, is seen.
    function reveal(item: Item) {
        for (let each = item; each !== column; each = each.parent) {
            if (!each)
                return;
        }
        const top = item.mapToItem(column, 0, 0).y;
        const last = Math.max(0, column.implicitHeight - body.height);
        const low = top + Math.min(item.height, body.height) - body.height;
        body.contentY = Math.max(0, Math.min(last, Math.max(low, Math.min(body.contentY, top))));
    }

    implicitHeight: Math.max(Math.min(maximumHeight, wholeHeight), chrome + Math.min(72, column.implicitHeight))
    // Whatever stands under the pointer now was somewhere else a moment ago.
    onYChanged: request.settle()
    onHeightChanged: request.settle()
    onEndShownChanged: Qt.callLater(look)
    onWholeSeenChanged: request.wholeSeen = wholeSeen
    Component.onCompleted: {
        request.wholeSeen = wholeSeen;
        Qt.callLater(look);
    }
    Keys.onPressed: event => {
        const sends = (event.modifiers & Qt.ControlModifier) && (event.key === Qt.Key_Return || event.key === Qt.Key_Enter);
        event.accepted = sends;
        if (sends)
            request.submit();
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.cardRadius
        color: Theme.card
        border.width: 1
        border.color: Qt.alpha(Theme.lights[root.light], Theme.dark ? 0.4 : 0.5)
    }

    Column {
        id: headColumn

        x: Theme.cardPadding
        y: Theme.cardPadding
        width: root.width - 2 * Theme.cardPadding
        spacing: Theme.gap
    }

    Flickable {
        id: body

        objectName: "cardBody"
        x: Theme.cardPadding
        y: headColumn.y + headColumn.implicitHeight + Theme.spacing
        width: root.width - 2 * Theme.cardPadding
        height: Math.max(0, root.height - root.chrome)
        contentWidth: width
        contentHeight: column.implicitHeight
        clip: contentHeight > height + 1
        boundsBehavior: Flickable.StopAtBounds
        onContentHeightChanged: {
            // More has come to be read.
            if (contentHeight > root.seenHeight + 1)
                root.endSeen = false;
            Qt.callLater(root.look);
        }

        Column {
            id: column

            width: body.width
            spacing: Theme.spacing
        }
    }

    ScrollMark {
        view: body
    }

    Rectangle {
        visible: body.clip
        x: 1
        y: body.y + body.height
        width: root.width - 2
        height: 1
        color: Theme.hairline
    }

    Column {
        id: footerColumn

        objectName: "cardFooter"
        x: Theme.cardPadding
        y: root.height - Theme.cardPadding - implicitHeight
        width: root.width - 2 * Theme.cardPadding
        spacing: Theme.gap
    }
}

import QtQuick
import Ostrel

// One block of a conversation: it is set by its kind, and stands where its speaker stands.
Item {
    id: root

    required property ConversationBridge bridge
    required property int index
    required property string key
    required property int kind
    required property bool person
    required property bool first
    required property bool last
    required property bool running
    required property string body
    required property string label
    required property string caption
    required property int found
    readonly property int room: width - 2 * Theme.readingMargin
    // The person's words stand in a bubble at the right, of as many blocks as the message has.
    readonly property int inset: person ? Theme.bubblePadding : 0
    readonly property int most: person ? room - 48 - 2 * inset : room
    readonly property int least: first && last && inside.item ? inside.item.naturalWidth + 1 : most

    signal menuWanted(real x, real y, string selected, string link)

    function passOn(item: Item, x: real, y: real, selected: string, link: string) {
        const place = root.mapFromItem(item, x, y);
        menuWanted(place.x, place.y, selected, link);
    }

    objectName: "conversationRow"
    height: bubble.y + bubble.height + (last ? 6 : 0)
    Accessible.role: Accessible.ListItem
    Accessible.name: (caption ? caption + ": " : "") + (kind === ConversationBridge.Activity ? label : body)

    Text {
        id: words

        visible: root.caption !== ""
        x: root.person ? root.width - width - Theme.readingMargin - 4 : Theme.readingMargin
        y: root.index > 0 ? 14 : 0
        text: root.caption
        color: Theme.tertiary
        textFormat: Text.PlainText
        font.pixelSize: Theme.captionSize
        font.weight: Font.Medium
        Accessible.ignored: true
    }

    Item {
        id: bubble

        x: inside.x - root.inset
        y: words.visible ? words.y + words.height + 4 : root.first ? 6 : root.person ? 0 : 7
        width: inside.width + 2 * root.inset
        height: inside.height + (root.person ? (root.first ? root.inset - 2 : 4) + (root.last ? root.inset - 2 : 4) : 0)
        clip: root.person && !(root.first && root.last)

        Rectangle {
            visible: root.person
            y: root.first ? 0 : -radius
            width: parent.width
            height: parent.height - y + (root.last ? 0 : radius)
            radius: Theme.bubbleRadius
            color: Theme.chosen
        }
    }

    // Where somebody looks for it.
    Rectangle {
        visible: root.found === 2
        x: 6
        y: bubble.y
        width: 3
        height: bubble.height
        radius: 1.5
        color: Theme.link
    }

    Loader {
        id: inside

        x: root.person ? root.width - Theme.readingMargin - root.inset - width : Theme.readingMargin
        y: bubble.y + (root.person ? (root.first ? root.inset - 2 : 4) : 0)
        width: root.person ? Math.min(root.most, root.least) : root.room
        sourceComponent: root.kind === ConversationBridge.Code ? code : root.kind === ConversationBridge.Tool ? tool : root.kind === ConversationBridge.Activity ? activity : prose
    }

    Component {
        id: prose

        ReadingText {
            bridge: root.bridge
            content: root.body
            markdown: root.kind === ConversationBridge.Prose
            onMenuWanted: (x, y, selected, link) => root.passOn(this, x, y, selected, link)
        }
    }

    Component {
        id: code

        CodeBlock {
            bridge: root.bridge
            content: root.body
            language: root.label
            onMenuWanted: (x, y, selected, link) => root.passOn(this, x, y, selected, link)
        }
    }

    Component {
        id: tool

        ToolRow {
            text: root.body
            running: root.running
        }
    }

    Component {
        id: activity

        ActivityRow {
            bridge: root.bridge
            content: root.body
            line: root.label
            onMenuWanted: (x, y, selected, link) => root.passOn(this, x, y, selected, link)
        }
    }

    // Beside the text, too.
    TapHandler {
        acceptedButtons: Qt.RightButton
        gesturePolicy: TapHandler.ReleaseWithinBounds
        onTapped: event => root.menuWanted(event.position.x, event.position.y, "", "")
    }
}

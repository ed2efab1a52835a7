import QtQuick
import Ostrel

// Claude Code asks whether it may use a tool: yes, yes for good, no, or what to do instead.
CardFrame {
    id: root

    required property PermissionCardBridge card

    objectName: "permissionCard"
    light: 0
    request: card
    Accessible.role: Accessible.Grouping
    Accessible.name: card.heading

    CardHeading {
        width: parent.width
        text: root.card.heading
        light: root.light
        symbol: HandSymbol {
            color: Theme.lights[0]
        }
    }

    DetailBlock {
        objectName: "permissionDetail"
        width: parent.width
        visible: text !== ""
        text: root.card.detail
        onWholeSeenChanged: root.card.wholeSeen = wholeSeen
    }

    DiffView {
        objectName: "permissionDiff"
        width: parent.width
        visible: lines.count > 0
        lines: root.card.diff
        onUnfolded: key => root.card.unfold(key)
    }

    Column {
        width: parent.width
        spacing: 6

        Flow {
            width: parent.width
            spacing: Theme.gap

            PushButton {
                objectName: "permissionYes"
                text: "Yes"
                prominent: true
                enabled: root.card.wholeSeen
                onChosen: root.card.choose("allow")
            }

            PushButton {
                objectName: "permissionAlways"
                visible: root.card.alwaysLine !== ""
                text: "Yes, don't ask again"
                enabled: root.card.wholeSeen
                onChosen: root.card.choose("always")
            }

            PushButton {
                objectName: "permissionNo"
                text: "No"
                onChosen: root.card.choose("deny")
            }
        }

        CardText {
            objectName: "permissionUnread"
            visible: !root.card.wholeSeen
            text: "Read it to its end before you allow it."
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }

        CardText {
            objectName: "permissionRules"
            text: root.card.alwaysLine
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }
    }

    TextEntry {
        objectName: "permissionInstead"
        width: parent.width
        placeholder: "Or tell Claude what to do instead…"
        text: root.card.instead
        onEdited: text => root.card.instead = text
        onSubmitted: root.card.tell()
    }

    CardText {
        objectName: "permissionProblem"
        text: root.card.problem
        color: Theme.failure
        font.pixelSize: Theme.captionSize
        Accessible.role: Accessible.AlertMessage
    }
}

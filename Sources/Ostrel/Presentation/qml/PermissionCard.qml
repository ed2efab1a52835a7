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
    partsSeen: detail.wholeSeen
    partsCut: detail.cut
    onPaged: detail.opened = true

    head: [
        CardHeading {
            width: parent.width
            text: root.card.heading
            light: root.light
            symbol: HandSymbol {
                color: Theme.lights[0]
            }
        },
        CardText {
            objectName: "permissionPurpose"
            text: root.card.purpose
            color: Theme.secondary
            maximumLineCount: 3
            elide: Text.ElideRight
        }
    ]

    DetailBlock {
        id: detail

        objectName: "permissionDetail"
        width: parent.width
        visible: text !== ""
        text: root.card.detail
    }

    DiffView {
        objectName: "permissionDiff"
        width: parent.width
        visible: lines.count > 0
        lines: root.card.diff
        onUnfolded: key => root.card.unfold(key)
    }

    CardText {
        objectName: "permissionRules"
        text: root.card.alwaysLine
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
    }

    footer: [
        Flow {
            width: parent.width
            spacing: Theme.gap

            PushButton {
                objectName: "permissionYes"
                text: "Yes"
                letter: root.takesKeys ? root.card.keyOf("allow") : ""
                prominent: true
                enabled: root.card.wholeSeen
                onChosen: root.card.choose("allow")
            }

            PushButton {
                objectName: "permissionAlways"
                visible: root.card.alwaysLine !== ""
                text: "Yes, don't ask again"
                letter: root.takesKeys ? root.card.keyOf("always") : ""
                enabled: root.card.wholeSeen
                onChosen: root.card.choose("always")
            }

            PushButton {
                objectName: "permissionNo"
                text: "No"
                letter: root.takesKeys ? root.card.keyOf("deny") : ""
                onChosen: root.card.choose("deny")
            }
        },
        CardText {
            objectName: "permissionUnread"
            visible: !root.card.wholeSeen
            text: "Read it to its end before you allow it."
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        },
        TextEntry {
            objectName: "permissionInstead"
            width: parent.width
            placeholder: "Or tell Claude what to do instead…"
            text: root.card.instead
            onEdited: text => root.card.instead = text
            onSubmitted: root.card.tell()
        },
        CardText {
            objectName: "permissionProblem"
            text: root.card.problem
            color: Theme.failure
            font.pixelSize: Theme.captionSize
            Accessible.role: Accessible.AlertMessage
        }
    ]
}

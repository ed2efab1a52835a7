pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// What a request of Codex is about: the command, the changes, the access, or the tool of a connected app.
Column {
    id: root

    required property CodexCardBridge card
    // The person was shown each of its texts down to its end.
    readonly property bool wholeSeen: command.wholeSeen && changes.wholeSeen && access.wholeSeen && toolArguments.wholeSeen
    // One of them is cut short.
    readonly property bool cut: (command.visible && command.cut) || (changes.visible && changes.cut) || (access.visible && access.cut) || (link.visible && link.cut) || (toolArguments.visible && toolArguments.cut)

    function openAll() {
        for (const block of [command, changes, access, link, toolArguments])
            block.opened = true;
    }

    spacing: Theme.gap

    DetailBlock {
        id: command

        objectName: "codexCommand"
        width: parent.width
        visible: text !== ""
        text: root.card.command
    }

    LabelledLine {
        width: parent.width
        visible: value !== ""
        label: "folder"
        value: root.card.folder
    }

    CardText {
        objectName: "codexWriteAccess"
        text: root.card.writeAccess
    }

    CardText {
        visible: root.card.diff.count > 0 || root.card.changesText !== ""
        text: "Review file changes"
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
    }

    DiffView {
        width: parent.width
        visible: root.card.diff.count > 0
        lines: root.card.diff
        onUnfolded: key => root.card.unfold(key)
    }

    DetailBlock {
        id: changes

        objectName: "codexChanges"
        width: parent.width
        visible: text !== ""
        text: root.card.changesText
    }

    CardText {
        visible: root.card.access !== ""
        text: "Requested access"
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
    }

    DetailBlock {
        id: access

        objectName: "codexAccess"
        width: parent.width
        visible: text !== ""
        label: "Requested access"
        text: root.card.access
    }

    DetailBlock {
        id: link

        objectName: "codexLink"
        width: parent.width
        visible: text !== ""
        label: "Address of the link"
        text: root.card.link
    }

    CardText {
        objectName: "codexTool"
        text: root.card.tool
        font.weight: Font.DemiBold
        font.family: Theme.fixedFamily
    }

    DetailBlock {
        id: toolArguments

        objectName: "codexToolArguments"
        width: parent.width
        visible: text !== ""
        text: root.card.toolArguments
    }
}

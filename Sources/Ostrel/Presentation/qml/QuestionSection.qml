pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// One question of a card: its options, and a field for an answer of one's own.
Column {
    id: root

    required property QuestionBridge question
    // Whether the keyboard goes through the options one by one; a card may do that itself.
    property bool stops: true

    // Something of it should be seen.
    signal wanted(Item item)
    signal ownWanted(Item field)

    objectName: "questionSection"
    spacing: 4
    Accessible.role: Accessible.Grouping
    Accessible.name: question.question

    CardText {
        text: root.question.header
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
    }

    CardText {
        bottomPadding: 4
        text: root.question.question
    }

    Repeater {
        model: root.question.options

        ChoiceRow {
            required property int index

            width: root.width
            multiple: root.question.multiple
            activeFocusOnTab: root.stops && enabled
            onPicked: root.question.choose(index)
            onHighlightedChanged: if (highlighted) root.wanted(this)
        }
    }

    Item {
        width: 1
        height: 2
        visible: field.visible
    }

    TextEntry {
        id: field

        objectName: "ownAnswer"
        width: root.width
        visible: root.question.takesText
        placeholder: "Your answer"
        label: root.question.question
        secret: root.question.secret
        text: root.question.own
        activeFocusOnTab: root.stops && enabled
        onEdited: text => root.question.own = text
        onActiveFocusChanged: if (activeFocus) root.question.focusOwn()

        Connections {
            target: root.question

            function onOwnFocusedChanged() {
                if (root.question.ownFocused)
                    root.ownWanted(field);
            }
        }
    }

    CardText {
        visible: root.question.multiple
        topPadding: 2
        text: "Choose any"
        color: Theme.tertiary
        font.pixelSize: Theme.captionSize
    }

    Component.onCompleted: if (question.ownFocused) ownWanted(field)
}

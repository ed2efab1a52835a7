import QtQuick
import Ostrel

// Claude Code asks the person something. Up and Down move among the options, Tab goes to the next question,
// Return chooses and sends at the end.
CardFrame {
    id: root

    required property QuestionCardBridge card
    required property bool hasTerminal

    signal terminalChosen
    signal wanted(Item item)

    objectName: "questionCard"
    light: 0
    request: card
    Accessible.role: Accessible.Grouping
    Accessible.name: card.heading
    Keys.onUpPressed: card.press(QuestionCardBridge.Up)
    Keys.onDownPressed: card.press(QuestionCardBridge.Down)
    Keys.onTabPressed: card.press(QuestionCardBridge.Tab)
    Keys.onReturnPressed: card.press(QuestionCardBridge.Return)
    Keys.onEnterPressed: card.press(QuestionCardBridge.Return)

    // Has the keyboard while no field has it.
    Item {
        id: options

        focus: true
        activeFocusOnTab: true
        Keys.onTabPressed: root.card.press(QuestionCardBridge.Tab)
    }

    Connections {
        target: root.card

        function onMoved() {
            if (!root.card.typing)
                options.focus = true;
        }
    }

    Item {
        width: parent.width
        implicitHeight: heading.implicitHeight

        CardHeading {
            id: heading

            width: parent.width - (terminal.visible ? terminal.width + Theme.gap : 0)
            text: root.card.heading
            size: Theme.bodySize
            light: root.light
            symbol: QuestionSymbol {
                color: Theme.lights[0]
                bubble: true
            }
        }

        PushButton {
            id: terminal

            objectName: "answerInTerminal"
            anchors.right: parent.right
            y: 4
            small: true
            visible: root.hasTerminal
            text: "Answer in terminal"
            onChosen: root.terminalChosen()
        }
    }

    Repeater {
        model: root.card.questions

        QuestionSection {
            required property QuestionBridge modelData

            width: root.partsWidth
            question: modelData
            stops: false
            onWanted: item => root.wanted(item)
            onOwnWanted: field => field.focus = true
        }
    }

    PushButton {
        objectName: "questionSend"
        anchors.right: parent.right
        text: "Send"
        prominent: true
        enabled: root.card.complete
        onChosen: root.card.send()
    }

    CardText {
        objectName: "questionProblem"
        text: root.card.problem
        color: Theme.failure
        font.pixelSize: Theme.captionSize
        Accessible.role: Accessible.AlertMessage
    }
}

import QtQuick
import Ostrel

// Claude Code asks the person something. Up and Down move among the options, Tab goes to the next question,
// Return chooses and sends at the end, with Control it sends from everywhere.
CardFrame {
    id: root

    required property QuestionCardBridge card
    required property bool hasTerminal

    signal terminalChosen

    function answer(event: KeyEvent) {
        event.accepted = !(event.modifiers & Qt.ControlModifier);
        if (event.accepted)
            card.press(QuestionCardBridge.Return);
    }

    // With Alt the arrows are the window's.
    function move(event: KeyEvent, key: int) {
        event.accepted = !(event.modifiers & Qt.AltModifier);
        if (event.accepted)
            card.press(key);
    }

    objectName: "questionCard"
    light: 0
    request: card
    Accessible.role: Accessible.Grouping
    Accessible.name: card.heading
    Keys.onUpPressed: event => move(event, QuestionCardBridge.Up)
    Keys.onDownPressed: event => move(event, QuestionCardBridge.Down)
    Keys.onTabPressed: card.press(QuestionCardBridge.Tab)
    Keys.onReturnPressed: event => answer(event)
    Keys.onEnterPressed: event => answer(event)

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

    head: Item {
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
            onWanted: item => root.reveal(item)
            onOwnWanted: field => field.focus = true
        }
    }

    footer: [
        Item {
            width: parent.width
            implicitHeight: Math.max(hints.implicitHeight, sendButton.height)

            Flow {
                id: hints

                objectName: "questionKeys"
                width: parent.width - sendButton.width - Theme.spacing
                anchors.verticalCenter: parent.verticalCenter
                spacing: Theme.spacing

                KeyHint {
                    height: 18
                    keys: "↑ ↓"
                    meaning: "move"
                }

                KeyHint {
                    height: 18
                    keys: "Return"
                    meaning: "choose"
                }

                KeyHint {
                    height: 18
                    visible: root.card.questions.length > 1
                    keys: "Tab"
                    meaning: "next question"
                }

                KeyHint {
                    height: 18
                    keys: "Ctrl+Return"
                    meaning: root.card.questions.length > 1 ? "send all" : "send"
                }
            }

            PushButton {
                id: sendButton

                objectName: "questionSend"
                anchors.right: parent.right
                anchors.verticalCenter: parent.verticalCenter
                text: "Send"
                prominent: true
                enabled: root.card.complete
                onChosen: root.card.submit()
            }
        },
        CardText {
            objectName: "questionProblem"
            text: root.card.problem
            color: Theme.failure
            font.pixelSize: Theme.captionSize
            Accessible.role: Accessible.AlertMessage
        }
    ]
}

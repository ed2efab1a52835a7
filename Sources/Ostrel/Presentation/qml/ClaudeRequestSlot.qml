import QtQuick
import Ostrel

// What Claude Code asks: one of the two cards.
Loader {
    id: root

    required property RequestsBridge bridge
    required property PermissionCardBridge permission
    required property QuestionCardBridge question

    // Something of it should be seen.
    signal wanted(Item item)

    focus: question !== null
    sourceComponent: permission ? permissionCard : questionCard

    Component {
        id: permissionCard

        PermissionCard {
            card: root.permission
        }
    }

    Component {
        id: questionCard

        QuestionCard {
            focus: true
            card: root.question
            hasTerminal: root.bridge.hasTerminal
            onTerminalChosen: root.bridge.goToTerminal()
            onWanted: item => root.wanted(item)
        }
    }
}

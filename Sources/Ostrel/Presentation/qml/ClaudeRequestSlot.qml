import QtQuick
import Ostrel

// What Claude Code asks: one of the two cards.
Loader {
    id: root

    required property RequestsBridge bridge
    required property PermissionCardBridge permission
    required property QuestionCardBridge question
    property real maximumHeight: Infinity
    readonly property CardFrame frame: item as CardFrame

    focus: question !== null
    sourceComponent: permission ? permissionCard : questionCard

    Component {
        id: permissionCard

        PermissionCard {
            card: root.permission
            maximumHeight: root.maximumHeight
            takesKeys: root.bridge.keyCard === card
        }
    }

    Component {
        id: questionCard

        QuestionCard {
            focus: true
            card: root.question
            maximumHeight: root.maximumHeight
            takesKeys: root.bridge.keyCard === card
            hasTerminal: root.bridge.hasTerminal
            onTerminalChosen: root.bridge.goToTerminal()
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The two sides of an agent in a pane: what was said, and its terminal.
Item {
    id: root

    required property ConversationBridge bridge

    objectName: "sectionSwitch"
    height: 44

    Rectangle {
        anchors.centerIn: parent
        width: sides.width + 4
        height: 30
        radius: 9
        color: Theme.hovered

        Row {
            id: sides

            anchors.centerIn: parent

            Repeater {
                model: ["Conversation history", "Terminal controls"]

                Rectangle {
                    id: side

                    required property int index
                    required property string modelData
                    readonly property bool chosen: root.bridge.showsTerminal === (index === 1)

                    objectName: "section" + index
                    width: name.implicitWidth + 28
                    height: 26
                    radius: 7
                    color: chosen ? Theme.surfaceTop : "transparent"
                    border.width: chosen || activeFocus ? 1 : 0
                    border.color: activeFocus ? Theme.link : Theme.border
                    activeFocusOnTab: true
                    Accessible.role: Accessible.RadioButton
                    Accessible.name: index === 1 ? "View terminal output" : modelData
                    Accessible.checked: chosen
                    Accessible.onPressAction: root.bridge.showsTerminal = index === 1
                    Keys.onReturnPressed: root.bridge.showsTerminal = index === 1
                    Keys.onEnterPressed: root.bridge.showsTerminal = index === 1
                    Keys.onSpacePressed: root.bridge.showsTerminal = index === 1

                    Text {
                        id: name

                        anchors.centerIn: parent
                        text: side.modelData
                        textFormat: Text.PlainText
                        color: side.chosen ? Theme.text : Theme.secondary
                        font.pixelSize: Theme.bodySize
                        font.weight: side.chosen ? Font.Medium : Font.Normal
                    }

                    TapHandler {
                        onTapped: root.bridge.showsTerminal = side.index === 1
                    }
                }
            }
        }
    }
}

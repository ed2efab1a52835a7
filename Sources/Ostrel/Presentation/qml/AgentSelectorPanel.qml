pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The agent list: what there is in a line, then the agents by project.
PanelPage {
    id: root

    required property SelectorBridge bridge

    objectName: "agentSelectorPanel"
    summary: bridge.summary
    hints: [
        KeyHint {
            keys: "↑ ↓"
            meaning: "Choose"
        },
        KeyHint {
            keys: "↵"
            meaning: "Open"
        },
        KeyHint {
            keys: "Esc"
            meaning: "Close"
        }
    ]
    Keys.onUpPressed: event => event.accepted = bridge.press(SelectorBridge.Up)
    Keys.onDownPressed: event => event.accepted = bridge.press(SelectorBridge.Down)
    Keys.onReturnPressed: event => event.accepted = bridge.press(SelectorBridge.Open)
    Keys.onEnterPressed: event => event.accepted = bridge.press(SelectorBridge.Open)
    Keys.onEscapePressed: event => event.accepted = bridge.press(SelectorBridge.Close)

    Column {
        id: problems

        objectName: "listProblems"
        x: Theme.pageMargin
        y: 10
        width: root.width - 2 * Theme.pageMargin
        spacing: 6
        visible: root.bridge.problems.length > 0

        Repeater {
            model: root.bridge.problems

            Text {
                required property string modelData

                objectName: "listProblem "
                width: problems.width
                text: modelData
                textFormat: Text.PlainText
                color: Theme.failure
                elide: Text.ElideRight
                wrapMode: Text.WrapAtWordBoundaryOrAnywhere
                maximumLineCount: 3
                font.pixelSize: Theme.captionSize
                Accessible.role: Accessible.AlertMessage
                Accessible.name: modelData
            }
        }
    }

    ListView {
        id: list

        objectName: "agentList"
        anchors.fill: parent
        anchors.topMargin: problems.visible ? problems.height + 14 : 0
        topMargin: 6
        bottomMargin: 6
        clip: true
        reuseItems: true
        boundsBehavior: Flickable.StopAtBounds
        model: root.bridge.rows
        delegate: SelectorRow {
            width: list.width
            bridge: root.bridge
        }
        move: Transition {
            enabled: Theme.motion

            NumberAnimation {
                properties: "y"
                duration: Theme.quick
                easing.type: Easing.OutCubic
            }
        }
        displaced: move
        Accessible.role: Accessible.List
        Accessible.name: "Agents"

        HoverHandler {
            onHoveredChanged: root.bridge.hoverList(hovered)
        }

        Connections {
            target: root.bridge

            function onSelectionChanged() {
                if (root.bridge.selectionRow >= 0)
                    list.positionViewAtIndex(root.bridge.selectionRow, ListView.Contain);
            }
        }
    }

    Column {
        visible: root.bridge.agents === 0
        anchors.centerIn: list
        width: list.width - 48
        spacing: 10

        Text {
            width: parent.width
            horizontalAlignment: Text.AlignHCenter
            wrapMode: Text.WordWrap
            visible: !problems.visible
            text: "Start claude, codex, gemini or aider in any terminal."
            textFormat: Text.PlainText
            color: Theme.tertiary
            font.pixelSize: Theme.captionSize
        }

        PushButton {
            objectName: "openConnections"
            anchors.horizontalCenter: parent.horizontalCenter
            text: "Connections"
            onChosen: root.bridge.openConnections()
        }
    }
}

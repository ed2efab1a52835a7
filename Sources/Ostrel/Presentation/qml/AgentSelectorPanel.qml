pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The agent list: how many there are of each light, then who needs the person, then the others by project. What is
// typed filters it.
PanelPage {
    id: root

    required property SelectorBridge bridge

    objectName: "agentSelectorPanel"
    // Where somebody is not at rest the counts say it.
    readonly property bool counted: bridge.counts[0] + bridge.counts[1] + bridge.counts[2] > 0 || bridge.chosenLight >= 0

    summary: counted ? "" : bridge.summary
    actions: TextEntry {
        id: field

        objectName: "filterField"
        visible: root.bridge.agents > 0 || text !== ""
        width: 150
        focus: true
        still: true
        placeholder: "Type to filter"
        label: "Filter agents"
        text: root.bridge.filterText
        onEdited: text => root.bridge.filterText = text
    }
    below: Repeater {
        model: root.counted ? 4 : 0

        CountChip {
            required property int index

            visible: root.bridge.counts[index] > 0 || chosen
            light: index
            text: root.bridge.countWords[index]
            chosen: index === root.bridge.chosenLight
            onPressed: root.bridge.chooseLight(index)
        }
    }
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
            meaning: root.bridge.filterText || root.bridge.chosenLight >= 0 ? "Show all" : "Close"
        }
    ]
    // A letter typed anywhere in the list begins the filter, or goes on with it.
    Keys.onPressed: event => {
        const plain = !(event.modifiers & (Qt.ControlModifier | Qt.AltModifier | Qt.MetaModifier));
        if (!plain || event.text.length === 0 || event.text < (bridge.filterText ? " " : "!") || event.text === "\x7f")
            return;
        bridge.filterText += event.text;
        field.forceActiveFocus();
        event.accepted = true;
    }
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

            function onFilterChanged() {
                list.positionViewAtBeginning();
            }
        }
    }

    EdgeFade {
        objectName: "fadeAbove"
        visible: !list.atYBeginning
        anchors.top: list.top
        width: list.width
        atTop: true
    }

    EdgeFade {
        objectName: "fadeBelow"
        visible: !list.atYEnd
        anchors.bottom: list.bottom
        width: list.width
    }

    ScrollMark {
        view: list
    }

    PushButton {
        // The last row of which more than half is seen.
        readonly property int lastSeen: list.atYEnd || list.contentHeight === 0 ? list.count : list.indexAt(20, list.contentY + list.height - Theme.rowHeight / 2)
        readonly property int waiting: root.bridge.edition >= 0 && lastSeen >= 0 ? root.bridge.needsYouBelow(lastSeen) : 0

        objectName: "needsYouBelow"
        visible: waiting > 0
        anchors.horizontalCenter: list.horizontalCenter
        anchors.bottom: list.bottom
        anchors.bottomMargin: 8
        small: true
        prominent: true
        text: waiting === 1 ? "1 more needs you below" : waiting + " more need you below"
        onChosen: list.positionViewAtIndex(root.bridge.nextNeedsYou(lastSeen), ListView.Center)
    }

    Text {
        objectName: "emptyResult"
        visible: text !== ""
        anchors.centerIn: list
        width: list.width - 48
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
        maximumLineCount: 4
        elide: Text.ElideRight
        text: root.bridge.emptyResult
        textFormat: Text.PlainText
        color: Theme.secondary
        font.pixelSize: Theme.bodySize
        Accessible.role: Accessible.StaticText
        Accessible.name: text
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

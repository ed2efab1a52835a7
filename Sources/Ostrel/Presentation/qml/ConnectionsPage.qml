pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The page of connections: the providers' sign-ins, the link with Herdr, and where Herdr is.
PanelPage {
    id: root

    required property ConnectionsBridge bridge

    objectName: "connectionsPage"
    summary: bridge.message !== "" ? bridge.message : "Accounts of your agents, and Herdr"
    summarySize: Theme.captionSize + 1
    summaryLines: 2
    actions: [
        PushButton {
            objectName: "showAgents"
            anchors.verticalCenter: parent.verticalCenter
            text: "Agents"
            onChosen: root.bridge.showAgents()
        },
        CloseButton {
            anchors.verticalCenter: parent.verticalCenter
            onChosen: root.bridge.close()
        }
    ]
    hints: [
        KeyHint {
            keys: "Tab"
            meaning: "Choose"
        },
        KeyHint {
            keys: "↵"
            meaning: "Press"
        },
        KeyHint {
            keys: "Esc"
            meaning: "Close"
        }
    ]
    Keys.onEscapePressed: bridge.close()

    Flickable {
        id: page

        anchors.fill: parent
        contentHeight: content.implicitHeight + 8
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        // The keyboard's place stays in sight.
        readonly property Item focused: Window.activeFocusItem

        onFocusedChanged: {
            let item = focused;
            while (item && item !== content)
                item = item.parent;
            if (!item)
                return;
            const top = focused.mapToItem(content, 0, 0).y;
            contentY = Math.max(0, Math.min(Math.max(contentY, top + focused.height + 12 - height), top - 12));
        }

        Column {
            id: content

            y: 4
            width: page.width
            spacing: 0

            Repeater {
                model: root.bridge.rows

                ConnectionCard {
                    width: content.width
                    onChosen: (key, button) => root.bridge.choose(key, button)
                }
            }

            ConnectionField {
                width: content.width
                label: "Herdr executable"
                placeholder: root.bridge.foundExecutable !== "" ? root.bridge.foundExecutable : "/path/to/herdr"
                text: root.bridge.executable
                onEdited: text => root.bridge.executable = text
            }

            ConnectionField {
                width: content.width
                label: "Herdr session"
                placeholder: "All sessions"
                text: root.bridge.session
                onEdited: text => root.bridge.session = text
            }
        }
    }
}

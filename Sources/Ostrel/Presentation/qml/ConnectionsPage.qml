import QtQuick
import Ostrel

// The page of connections: the providers' sign-ins, the link with Herdr, and where Herdr is.
FocusScope {
    id: root

    required property ConnectionsBridge bridge

    objectName: "connectionsPage"
    focus: true
    Keys.onEscapePressed: bridge.close()

    PushButton {
        id: back

        objectName: "showAgents"
        anchors.right: close.left
        anchors.rightMargin: 8
        anchors.verticalCenter: close.verticalCenter
        text: "Agents"
        onChosen: root.bridge.showAgents()
    }

    CloseButton {
        id: close

        anchors.right: parent.right
        anchors.rightMargin: 12
        y: 14
        onChosen: root.bridge.close()
    }

    Column {
        x: 20
        y: 18
        width: back.x - 32
        spacing: 4

        Text {
            text: "Connections"
            textFormat: Text.PlainText
            color: Theme.text
            font.pixelSize: Theme.titleSize
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }

        Text {
            objectName: "connectionsMessage"
            width: parent.width
            text: root.bridge.message !== "" ? root.bridge.message : "Accounts of your agents, and Herdr"
            textFormat: Text.PlainText
            color: Theme.secondary
            wrapMode: Text.WordWrap
            maximumLineCount: 2
            elide: Text.ElideRight
            font.pixelSize: Theme.captionSize + 1
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }

    Rectangle {
        y: Theme.headerHeight - 1
        width: parent.width
        height: 1
        color: Theme.hairline
    }

    Flickable {
        id: page

        anchors.fill: parent
        anchors.topMargin: Theme.headerHeight
        anchors.bottomMargin: Theme.footerHeight
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
                    required property var model

                    width: content.width
                    state_: model.state
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

    Rectangle {
        anchors.bottom: parent.bottom
        anchors.bottomMargin: Theme.footerHeight
        width: parent.width
        height: 1
        color: Theme.hairline
    }

    Row {
        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        height: Theme.footerHeight
        spacing: 18

        KeyHint {
            keys: "Tab"
            meaning: "Choose"
        }
        KeyHint {
            keys: "↵"
            meaning: "Press"
        }
        KeyHint {
            keys: "Esc"
            meaning: "Close"
        }
    }
}

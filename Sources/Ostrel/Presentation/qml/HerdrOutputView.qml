import QtQuick
import Ostrel

// One agent beside the list: who it is, where it runs, how it stands.
Item {
    id: root

    required property AgentBridge bridge
    readonly property rect surface: Qt.rect(Theme.margin, Theme.margin, width - 2 * Theme.margin, height - 2 * Theme.margin)
    readonly property real surfaceRadius: Theme.panelRadius
    readonly property color surfaceColor: Theme.surfaceBottom

    objectName: "herdrOutputView"

    FocusScope {
        anchors.fill: parent
        focus: true
        Keys.onEscapePressed: root.bridge.close()
    }

    Glass {
        x: root.surface.x
        y: root.surface.y
        width: root.surface.width
        height: root.surface.height

        NotchLight {
            id: dot

            x: 20
            y: 24
            light: root.bridge.light
        }

        Text {
            id: title

            objectName: "agentTitle"
            anchors.left: dot.right
            anchors.leftMargin: 14
            anchors.right: close.left
            anchors.rightMargin: Theme.spacing
            anchors.verticalCenter: dot.verticalCenter
            text: root.bridge.title
            color: Theme.text
            elide: Text.ElideRight
            font.pixelSize: Theme.titleSize
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }

        StateWord {
            objectName: "agentState"
            x: title.x - 2
            y: 46
            light: root.bridge.light
            text: root.bridge.state
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }

        CloseButton {
            id: close

            anchors.right: parent.right
            anchors.rightMargin: 12
            anchors.verticalCenter: dot.verticalCenter
            onChosen: root.bridge.close()
        }

        Rectangle {
            y: 84
            width: parent.width
            height: 1
            color: Theme.hairline
        }

        FactList {
            x: 20
            y: 100
            width: parent.width - 40
            facts: root.bridge.facts
        }
    }
}

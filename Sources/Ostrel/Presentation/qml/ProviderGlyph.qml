pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A small sign for an agent's provider: a star for "claude", a prompt for "codex", for others the letter that
// they begin with in a frame.
Item {
    id: root

    required property string glyph
    required property string letter
    required property color ink

    implicitWidth: 12
    implicitHeight: 12

    Repeater {
        model: root.glyph === "claude" ? [0, 60, 120] : []

        Rectangle {
            required property int modelData

            anchors.centerIn: parent
            width: 11
            height: 1.8
            radius: 0.9
            rotation: modelData
            antialiasing: true
            color: root.ink
        }
    }

    Repeater {
        model: root.glyph === "codex" ? [45, -45] : []

        Rectangle {
            required property int modelData

            x: 0.2
            y: modelData > 0 ? 3 : 6.4
            width: 6
            height: 1.7
            radius: 0.8
            rotation: modelData
            antialiasing: true
            color: root.ink
        }
    }

    Rectangle {
        visible: root.glyph === "codex"
        x: 6.5
        y: 9.6
        width: 5
        height: 1.7
        radius: 0.8
        color: root.ink
    }

    Rectangle {
        anchors.fill: parent
        visible: root.glyph === "other"
        radius: 3
        color: "transparent"
        border.width: 1
        border.color: Qt.alpha(root.ink, 0.6)
    }

    BoxedText {
        objectName: "providerLetter"
        anchors.fill: parent
        anchors.leftMargin: 1
        anchors.rightMargin: 1
        visible: root.glyph === "other"
        text: root.letter
        color: root.ink
        font.pixelSize: 8
    }
}

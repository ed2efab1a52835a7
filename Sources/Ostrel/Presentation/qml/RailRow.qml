pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A row of the rail: an agent, or what stands for those without a row. It comes in after the rows above it.
Item {
    id: root

    required property int index
    required property string key
    required property string kind
    required property int light
    required property string glyph
    required property string letter
    required property string mark
    required property string label
    required property bool expanded
    required property bool breathing
    required property int delay

    signal chosen(string key)
    signal hovered(string key, bool inside)
    signal rested(string key, point place)  // where a tooltip may stand, on the screen

    property real entrance: 0
    readonly property bool agent: kind === "agent"
    readonly property color ink: hover.hovered ? Theme.text : Theme.secondary

    objectName: "railRow" + index
    opacity: Math.min(1, entrance)
    transform: Translate {
        x: 18 * (1 - root.entrance)
    }
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: label
    Accessible.onPressAction: chosen(key)
    Keys.onReturnPressed: chosen(key)
    Keys.onSpacePressed: chosen(key)

    // Leaving is together and at once.
    states: State {
        name: "in"
        when: root.expanded

        PropertyChanges {
            root.entrance: 1
        }
    }
    transitions: Transition {
        to: "in"
        enabled: Theme.motion

        SequentialAnimation {
            PauseAnimation {
                duration: Math.max(0, root.delay)  // a row that goes has no place
            }
            Spring {
                target: root
                property: "entrance"
                response: 0.26
            }
        }
    }

    Rectangle {
        anchors.fill: parent
        anchors.leftMargin: 5
        anchors.rightMargin: 5
        radius: 7
        color: tap.pressed ? Theme.pressed : hover.hovered || root.activeFocus ? Theme.hovered : "transparent"
    }

    NotchLight {
        visible: root.agent
        anchors.verticalCenter: parent.verticalCenter
        x: 6
        light: root.light
        breathing: root.breathing
    }

    ProviderGlyph {
        visible: root.agent
        anchors.verticalCenter: parent.verticalCenter
        x: 20
        glyph: root.glyph
        letter: root.letter
        ink: root.ink
    }

    BoxedText {
        objectName: "railMark"
        visible: root.kind !== "list"
        x: root.agent ? 33 : 6
        width: root.width - x - (root.agent ? 2 : 6)
        height: parent.height
        text: root.mark
        color: root.ink
        font.pixelSize: Theme.captionSize
    }

    ListGlyph {
        visible: root.kind === "list"
        anchors.centerIn: parent
        ink: root.ink
    }

    // A moment after the preview would have come.
    Timer {
        interval: 500
        running: hover.hovered
        onTriggered: root.rested(root.key, root.mapToGlobal(0, root.height / 2))
    }

    HoverHandler {
        id: hover

        onHoveredChanged: root.hovered(root.key, hovered)
    }

    TapHandler {
        id: tap

        onTapped: root.chosen(root.key)
    }
}

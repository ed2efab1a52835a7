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
    required property string mark
    required property string label
    required property bool expanded
    required property int delay

    signal chosen(string key)
    signal hovered(string key, bool inside)

    property real entrance: 0

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
        visible: root.kind !== "more"
        anchors.verticalCenter: parent.verticalCenter
        x: root.mark ? 9 : (root.width - width) / 2
        light: root.light
        animating: root.expanded
    }

    Text {
        anchors.verticalCenter: parent.verticalCenter
        x: root.kind === "more" ? (root.width - width) / 2 : 23
        text: root.mark
        textFormat: Text.PlainText
        color: hover.hovered ? Theme.text : Theme.secondary
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
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

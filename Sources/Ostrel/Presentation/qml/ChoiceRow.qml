pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Something to choose: one of several, or, with `multiple`, in or out by itself.
Item {
    id: root

    required property string label
    required property string description
    required property bool chosen
    required property bool highlighted
    property bool multiple: false

    signal picked

    function pick() {
        if (enabled)
            picked();
    }

    objectName: "choiceRow"
    implicitHeight: words.implicitHeight + 12
    opacity: enabled ? 1 : 0.45
    Accessible.role: multiple ? Accessible.CheckBox : Accessible.RadioButton
    Accessible.name: label
    Accessible.description: description
    Accessible.checkable: true
    Accessible.checked: chosen
    Accessible.focusable: true
    Accessible.onPressAction: pick()
    Accessible.onToggleAction: pick()
    Keys.onReturnPressed: event => {
        // With Control it sends the whole card.
        event.accepted = !(event.modifiers & Qt.ControlModifier);
        if (event.accepted)
            pick();
    }
    Keys.onEnterPressed: event => {
        // With Control it sends the whole card.
        event.accepted = !(event.modifiers & Qt.ControlModifier);
        if (event.accepted)
            pick();
    }
    Keys.onSpacePressed: pick()

    FocusRing {
        visible: root.activeFocus
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.controlRadius
        color: tap.pressed ? Theme.pressed : root.chosen ? Theme.chosen : hover.hovered || root.highlighted ? Theme.hovered : "transparent"
        border.width: root.highlighted ? 1 : 0
        border.color: Qt.alpha(Theme.accent, 0.6)
    }

    Rectangle {
        id: mark

        x: 10
        y: words.y + Math.round((name.lineHeightOfFirst - height) / 2)
        width: 16
        height: 16
        radius: root.multiple ? 4 : 8
        color: root.chosen && root.multiple ? Theme.accent : Theme.field
        border.width: root.chosen && !root.multiple ? 5 : root.chosen ? 0 : 1
        border.color: root.chosen ? Theme.accent : Theme.outline
        antialiasing: true

        Tick {
            visible: root.chosen && root.multiple
            anchors.fill: parent
        }
    }

    Column {
        id: words

        x: 36
        y: 6
        width: parent.width - 36 - 10
        spacing: 2

        Text {
            id: name

            readonly property real lineHeightOfFirst: lineCount > 0 ? height / lineCount : height

            width: parent.width
            wrapMode: Text.Wrap
            text: root.label
            textFormat: Text.PlainText
            color: Theme.text
            font.pixelSize: Theme.bodySize
            font.weight: Font.Medium
        }

        Text {
            width: parent.width
            visible: text !== ""
            wrapMode: Text.Wrap
            text: root.description
            textFormat: Text.PlainText
            color: Theme.secondary
            font.pixelSize: Theme.captionSize
        }
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.pick()
    }
}

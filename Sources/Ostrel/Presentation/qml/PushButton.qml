pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A button with a title, which is never cut short: what is allowed by it must be read whole.
Item {
    id: root

    required property string text
    property bool prominent: false
    property bool small: false

    signal chosen

    function press() {
        if (enabled)
            chosen();
    }

    objectName: "pushButton"
    implicitWidth: Math.ceil(metrics.advanceWidth) + (small ? 20 : 28)
    implicitHeight: Math.max(small ? Theme.smallControlHeight : Theme.controlHeight, label.implicitHeight + 12)
    opacity: enabled ? 1 : 0.45
    activeFocusOnTab: enabled
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.focusable: true
    Accessible.onPressAction: press()
    Keys.onReturnPressed: press()
    Keys.onEnterPressed: press()
    Keys.onSpacePressed: press()

    FocusRing {
        visible: root.activeFocus
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.controlRadius
        color: root.prominent ? Theme.accent : Theme.button
        border.width: root.prominent ? 0 : 1
        border.color: Theme.outline
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.controlRadius
        visible: hover.hovered || tap.pressed
        color: root.prominent ? (tap.pressed ? Theme.accentPressed : Theme.accentHovered) : tap.pressed ? Theme.pressed : Theme.hovered
    }

    TextMetrics {
        id: metrics

        font: label.font
        text: root.text
    }

    Text {
        id: label

        anchors.centerIn: parent
        width: parent.width - (root.small ? 16 : 24)
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
        text: root.text
        textFormat: Text.PlainText
        color: root.prominent ? Theme.accentText : Theme.text
        font.pixelSize: root.small ? Theme.captionSize : Theme.bodySize
        font.weight: Font.Medium
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.press()
    }
}

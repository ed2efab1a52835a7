pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A button with a title, which is never cut short: what is allowed by it must be read whole.
Item {
    id: root

    required property string text
    // The key that does the same; it stands on the button.
    property string letter
    property bool prominent: false
    property bool small: false

    signal chosen

    function press() {
        if (enabled)
            chosen();
    }

    objectName: "pushButton"
    implicitWidth: Math.ceil(metrics.advanceWidth) + (small ? 20 : 28) + (cap.visible ? cap.width + 8 : 0)
    implicitHeight: Math.max(small ? Theme.smallControlHeight : Theme.controlHeight, label.implicitHeight + 12)
    opacity: enabled ? 1 : 0.45
    activeFocusOnTab: enabled
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.description: letter !== "" ? "Key " + letter : ""
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
        anchors.horizontalCenterOffset: cap.visible ? -(cap.width + 8) / 2 : 0
        width: parent.width - (root.small ? 16 : 24) - (cap.visible ? cap.width + 8 : 0)
        horizontalAlignment: Text.AlignHCenter
        wrapMode: Text.WrapAtWordBoundaryOrAnywhere
        text: root.text
        textFormat: Text.PlainText
        color: root.prominent ? Theme.accentText : Theme.text
        font.pixelSize: root.small ? Theme.captionSize : Theme.bodySize
        font.weight: Font.Medium
    }

    Rectangle {
        id: cap

        visible: root.letter !== ""
        anchors.right: parent.right
        anchors.rightMargin: 10
        anchors.verticalCenter: parent.verticalCenter
        width: 18
        height: 18
        radius: 5
        color: root.prominent ? Qt.rgba(1, 1, 1, 0.18) : Theme.hovered
        border.width: 1
        border.color: root.prominent ? Qt.rgba(1, 1, 1, 0.35) : Theme.hairline

        Text {
            objectName: "buttonLetter"
            anchors.centerIn: parent
            text: root.letter
            textFormat: Text.PlainText
            color: root.prominent ? Theme.accentText : Theme.secondary
            font.pixelSize: Theme.captionSize
            Accessible.ignored: true
        }
    }

    HoverHandler {
        id: hover
    }

    TapHandler {
        id: tap

        onTapped: root.press()
    }
}

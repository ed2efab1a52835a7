pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// How many agents have a light, in words, and a button that shows only them.
Item {
    id: root

    required property int light
    required property string text
    property bool chosen: false

    signal pressed

    objectName: "countChip"
    implicitWidth: word.implicitWidth
    implicitHeight: word.implicitHeight
    activeFocusOnTab: true
    Accessible.role: Accessible.Button
    Accessible.name: text
    Accessible.checkable: true
    Accessible.checked: chosen
    Accessible.focusable: true
    Accessible.onPressAction: pressed()
    Accessible.onToggleAction: pressed()
    Keys.onReturnPressed: pressed()
    Keys.onEnterPressed: pressed()
    Keys.onSpacePressed: pressed()

    FocusRing {
        visible: root.activeFocus
        around: word.radius
    }

    StateWord {
        id: word

        light: root.light
        text: root.text
        border.width: root.chosen ? 1 : 0
        border.color: Theme.lightTexts[root.light]
    }

    Rectangle {
        anchors.fill: parent
        radius: word.radius
        color: tap.pressed ? Theme.pressed : hover.hovered ? Theme.hovered : "transparent"
    }

    HoverHandler {
        id: hover

        cursorShape: Qt.PointingHandCursor
    }

    TapHandler {
        id: tap

        onTapped: root.pressed()
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// One of several values. It unfolds in its place, so that nothing is hidden behind it.
FocusScope {
    id: root

    required property list<string> choices
    required property int current
    required property string label
    property bool open: false
    property int highlighted: current

    signal picked(int index)

    function unfold() {
        if (!enabled)
            return;
        highlighted = current;
        open = !open;
    }

    function take(index: int) {
        open = false;
        picked(index);
    }

    function step(by: int) {
        if (!open)
            picked(Math.max(0, Math.min(rows.count - 1, current + by)));
        else
            highlighted = Math.max(0, Math.min(rows.count - 1, highlighted + by));
    }

    objectName: "picker"
    implicitWidth: 200
    implicitHeight: Theme.controlHeight + (open ? list.implicitHeight + 8 : 0)
    opacity: enabled ? 1 : 0.45
    activeFocusOnTab: enabled
    onActiveFocusChanged: if (!activeFocus) open = false
    Accessible.role: Accessible.ComboBox
    Accessible.name: label
    Accessible.description: choices[current]
    Accessible.focusable: true
    Accessible.onPressAction: unfold()
    Keys.onUpPressed: step(-1)
    Keys.onDownPressed: step(1)
    Keys.onSpacePressed: open ? take(highlighted) : unfold()
    Keys.onReturnPressed: open ? take(highlighted) : unfold()
    Keys.onEnterPressed: open ? take(highlighted) : unfold()
    Keys.onEscapePressed: event => {
        event.accepted = open;
        open = false;
    }

    FocusRing {
        visible: root.activeFocus
    }

    Rectangle {
        anchors.fill: parent
        radius: Theme.controlRadius
        color: Theme.field
        border.width: 1
        border.color: root.activeFocus ? Theme.accent : Theme.outline
    }

    Text {
        x: 10
        width: parent.width - 40
        height: Theme.controlHeight
        verticalAlignment: Text.AlignVCenter
        text: root.choices[root.current]
        textFormat: Text.PlainText
        color: root.current === 0 ? Theme.tertiary : Theme.text
        elide: Text.ElideRight
        font.pixelSize: Theme.bodySize
    }

    Item {
        x: parent.width - 24
        y: (Theme.controlHeight - height) / 2
        width: 9
        height: 6
        rotation: root.open ? 180 : 0

        Repeater {
            model: [-1, 1]

            Rectangle {
                required property int modelData

                x: 4.5 + modelData * 2.2 - width / 2
                y: 2
                width: 6.5
                height: 1.5
                radius: 1
                rotation: modelData * -45
                antialiasing: true
                color: Theme.secondary
            }
        }
    }

    TapHandler {
        onTapped: {
            root.forceActiveFocus();
            root.unfold();
        }
    }

    Column {
        id: list

        x: 4
        y: Theme.controlHeight + 2
        width: parent.width - 8
        visible: root.open

        Repeater {
            id: rows

            model: root.choices

            ChoiceRow {
                required property int index
                required property string modelData

                objectName: "pickerRow"

                width: list.width
                label: modelData
                description: ""
                chosen: index === root.current
                highlighted: index === root.highlighted
                onPicked: root.take(index)
            }
        }
    }
}

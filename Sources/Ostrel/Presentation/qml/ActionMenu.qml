pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A menu inside a window. Its items are objects {text, hint, checked, run}; one without text is a line.
FocusScope {
    id: root

    property var items: []
    property int current: -1
    property point place

    signal shown(bool open)

    function open(choices: var, x: real, y: real) {
        items = choices;
        current = -1;
        visible = true;
        place = Qt.point(x, y);
        forceActiveFocus();
        shown(true);
    }

    function close() {
        if (!visible)
            return;
        visible = false;
        shown(false);
    }

    function choose(index: int) {
        const item = items[index];
        close();
        if (item?.run)
            item.run();
    }

    function step(by: int) {
        for (let i = 0, at = current; i < items.length; ++i) {
            at = (at + by + items.length) % items.length;
            if (items[at].text) {
                current = at;
                return;
            }
        }
    }

    objectName: "actionMenu"
    visible: false
    Accessible.role: Accessible.PopupMenu
    Accessible.name: "Menu"
    Keys.onDownPressed: step(1)
    Keys.onUpPressed: step(current < 0 ? 0 : -1)
    Keys.onReturnPressed: if (current >= 0) choose(current)
    Keys.onEnterPressed: if (current >= 0) choose(current)
    Keys.onSpacePressed: if (current >= 0) choose(current)
    Keys.onEscapePressed: close()
    Keys.onPressed: event => event.accepted = true  // nothing else happens below an open menu
    Window.onActiveChanged: if (!Window.active) close()

    MouseArea {
        anchors.fill: parent
        acceptedButtons: Qt.AllButtons
        onPressed: root.close()
        onWheel: wheel => wheel.accepted = true
    }

    Glass {
        id: menu

        x: Math.max(8, Math.min(root.place.x, root.width - width - 8))
        y: Math.max(8, Math.min(root.place.y, root.height - height - 8))
        width: Math.max(200, column.widest + 12)
        height: column.height + 12
        radius: 11
        shadow: 6
        solid: true

        Column {
            id: column

            property real widest: 0

            x: 6
            y: 6
            width: menu.width - 12

            Repeater {
                model: root.items

                Item {
                    id: item

                    required property int index
                    required property var modelData
                    readonly property bool chosen: root.current === index && !!modelData.text

                    objectName: "menuItem" + index
                    width: column.width
                    height: modelData.text ? 28 : 9
                    Accessible.role: modelData.text ? Accessible.MenuItem : Accessible.Separator
                    Accessible.name: modelData.text ?? ""
                    Accessible.checked: !!modelData.checked
                    Accessible.onPressAction: root.choose(index)
                    Component.onCompleted: column.widest = Math.max(column.widest, name.implicitWidth + hint.implicitWidth + 58)
                    Component.onDestruction: column.widest = 0

                    Rectangle {
                        visible: !item.modelData.text
                        anchors.centerIn: parent
                        width: parent.width - 12
                        height: 1
                        color: Theme.hairline
                    }

                    Rectangle {
                        visible: item.chosen
                        anchors.fill: parent
                        radius: 7
                        color: Theme.chosen
                    }

                    Text {
                        x: 8
                        anchors.verticalCenter: parent.verticalCenter
                        visible: !!item.modelData.checked
                        text: "✓"
                        textFormat: Text.PlainText
                        color: Theme.text
                        font.pixelSize: Theme.captionSize
                    }

                    Text {
                        id: name

                        x: 24
                        anchors.verticalCenter: parent.verticalCenter
                        text: item.modelData.text ?? ""
                        color: Theme.text
                        textFormat: Text.PlainText
                        font.pixelSize: Theme.bodySize
                    }

                    Text {
                        id: hint

                        anchors.right: parent.right
                        anchors.rightMargin: 10
                        anchors.verticalCenter: parent.verticalCenter
                        text: item.modelData.hint ?? ""
                        textFormat: Text.PlainText
                        color: Theme.tertiary
                        font.pixelSize: Theme.captionSize
                    }

                    HoverHandler {
                        onHoveredChanged: if (hovered) root.current = item.index
                    }

                    TapHandler {
                        enabled: !!item.modelData.text
                        onTapped: root.choose(item.index)
                    }
                }
            }
        }
    }
}

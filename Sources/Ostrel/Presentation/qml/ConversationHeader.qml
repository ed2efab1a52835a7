pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Whose conversation it is and how the agent stands; its name can be changed in place.
Item {
    id: root

    required property ConversationBridge bridge
    property bool renaming: false

    signal menuWanted(real x, real y)
    signal findWanted

    function rename() {
        field.text = bridge.title;
        renaming = true;
        field.forceActiveFocus();
        field.selectAll();
    }

    function done(keep: bool) {
        if (!renaming)
            return;
        renaming = false;
        if (keep)
            bridge.rename(field.text);
    }

    height: Theme.headerHeight + (session.text !== "" ? 16 : 0)

    NotchLight {
        id: dot

        x: 20
        y: 22
        light: root.bridge.light
    }

    Text {
        id: title

        objectName: "agentTitle"
        visible: !root.renaming
        anchors.left: dot.right
        anchors.leftMargin: 14
        anchors.right: tools.left
        anchors.rightMargin: Theme.spacing
        anchors.verticalCenter: dot.verticalCenter
        text: root.bridge.title
        color: Theme.text
        elide: Text.ElideRight
        textFormat: Text.PlainText
        font.pixelSize: Theme.titleSize
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text

        TapHandler {
            onDoubleTapped: root.rename()
        }
    }

    Rectangle {
        visible: root.renaming
        anchors.fill: field
        anchors.margins: -5
        radius: 6
        color: Theme.hovered
        border.width: 1
        border.color: Theme.link
    }

    TextInput {
        id: field

        objectName: "agentTitleField"
        visible: root.renaming
        anchors.fill: title
        verticalAlignment: TextInput.AlignVCenter
        clip: true
        color: Theme.text
        selectionColor: Theme.selection
        selectedTextColor: Theme.text
        selectByMouse: true
        maximumLength: 200
        font: title.font
        Accessible.role: Accessible.EditableText
        Accessible.name: "Name of the agent"
        Keys.onReturnPressed: root.done(true)
        Keys.onEnterPressed: root.done(true)
        Keys.onEscapePressed: root.done(false)
        onActiveFocusChanged: if (!activeFocus) root.done(true)
    }

    StateWord {
        id: state

        objectName: "agentState"
        x: title.x - 2
        y: 43
        light: root.bridge.ended ? 3 : root.bridge.light
        text: root.bridge.status
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }

    Text {
        objectName: "agentDetails"
        anchors.left: state.right
        anchors.leftMargin: 8
        anchors.right: parent.right
        anchors.rightMargin: 20
        anchors.verticalCenter: state.verticalCenter
        text: root.bridge.details
        color: Theme.secondary
        elide: Text.ElideRight
        textFormat: Text.PlainText
        font.pixelSize: Theme.captionSize
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }

    Text {
        id: session

        objectName: "agentSession"
        x: title.x + 6
        y: 68
        width: root.width - x - 20
        text: root.bridge.session
        color: Theme.tertiary
        elide: Text.ElideRight
        textFormat: Text.PlainText
        font.pixelSize: Theme.captionSize
        Accessible.role: Accessible.StaticText
        Accessible.name: text
    }

    Row {
        id: tools

        anchors.right: parent.right
        anchors.rightMargin: 12
        anchors.verticalCenter: dot.verticalCenter
        spacing: 2

        IconButton {
            objectName: "showTerminal"
            visible: root.bridge.requests.hasTerminalWindow
            symbol: "terminal"
            name: "Show terminal"
            onChosen: root.bridge.requests.goToTerminal()
        }
        IconButton {
            objectName: "findButton"
            visible: !root.bridge.showsTerminal
            symbol: "find"
            name: "Find in conversation"
            onChosen: root.findWanted()
        }
        IconButton {
            id: more

            objectName: "menuButton"
            symbol: "more"
            name: "Conversation menu"
            onChosen: {
                const place = more.mapToItem(root, more.width, more.height + 4);
                root.menuWanted(place.x, place.y);
            }
        }
        CloseButton {
            onChosen: root.bridge.close()
        }
    }

    Rectangle {
        anchors.bottom: parent.bottom
        width: parent.width
        height: 1
        color: Theme.hairline
    }
}

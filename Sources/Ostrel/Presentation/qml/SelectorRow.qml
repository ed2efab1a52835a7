import QtQuick
import Ostrel

// A row of the agent list: a section's heading or an agent.
Item {
    id: root

    required property SelectorBridge bridge
    required property int index
    required property string key
    required property bool heading
    required property string title
    required property string subtitle
    required property int light
    required property string status
    required property string age
    required property bool asks

    height: heading ? Theme.headingHeight : Theme.rowHeight

    Text {
        visible: root.heading
        x: 20
        width: parent.width - 40
        height: parent.height - 4
        verticalAlignment: Text.AlignBottom
        text: root.title
        textFormat: Text.PlainText
        color: Theme.tertiary
        elide: Text.ElideMiddle
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text
        Accessible.ignored: !visible
    }

    Loader {
        active: !root.heading
        x: 6
        width: parent.width - 12
        sourceComponent: AgentRow {
            width: parent ? parent.width : 0
            key: root.key
            title: root.title
            subtitle: root.subtitle
            asks: root.asks
            status: root.status
            age: root.age
            light: root.light
            selected: root.key === root.bridge.selection
            open: root.key === root.bridge.openAgent
            onChosen: key => root.bridge.open(key)
            onHovered: (key, inside) => root.bridge.hover(key, inside)
        }
    }
}

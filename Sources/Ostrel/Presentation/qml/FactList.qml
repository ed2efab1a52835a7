import QtQuick
import Ostrel

// Names and values, one a line.
Column {
    id: root

    required property RowModel facts

    spacing: 12

    Repeater {
        model: root.facts

        Row {
            id: line

            required property string name
            required property string value

            Accessible.role: Accessible.StaticText
            Accessible.name: name + ": " + value

            Text {
                width: 84
                text: line.name
                color: Theme.tertiary
                font.pixelSize: Theme.bodySize
            }

            Text {
                width: root.width - 84
                text: line.value
                color: Theme.text
                elide: Text.ElideMiddle
                font.pixelSize: Theme.bodySize
            }
        }
    }
}

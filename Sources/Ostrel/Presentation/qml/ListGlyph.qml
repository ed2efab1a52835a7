pragma ComponentBehavior: Bound
import QtQuick

// Three lines: the list of all agents.
Column {
    id: root

    required property color ink

    spacing: 2

    Repeater {
        model: 3

        Rectangle {
            width: 14
            height: 2
            radius: 1
            color: root.ink
        }
    }
}

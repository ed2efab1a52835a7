import QtQuick
import Ostrel

// One field of a form, under its label.
Column {
    id: root

    required property FormFieldBridge field

    objectName: "formField"
    spacing: 5

    CardText {
        text: root.field.label
        color: Theme.secondary
        font.pixelSize: Theme.captionSize
        font.weight: Font.DemiBold
        Accessible.ignored: true
    }

    Loader {
        width: root.width
        sourceComponent: root.field.picks ? picked : typed
    }

    Component {
        id: picked

        Picker {
            label: root.field.label
            choices: root.field.choices
            current: root.field.choice
            onPicked: index => root.field.choice = index
        }
    }

    Component {
        id: typed

        TextEntry {
            label: root.field.label
            placeholder: root.field.placeholder
            text: root.field.text
            onEdited: text => root.field.text = text
        }
    }
}

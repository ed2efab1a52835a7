pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// The surface of a card, with its parts one below the other.
FocusScope {
    id: root

    required property int light  // whose colour its border has
    required property RequestCard request
    default property alias parts: column.data
    readonly property alias partsWidth: column.width

    implicitHeight: column.implicitHeight + 2 * Theme.cardPadding
    // Whatever stands under the pointer now was somewhere else a moment ago.
    onYChanged: request.settle()
    onHeightChanged: request.settle()

    Rectangle {
        anchors.fill: parent
        radius: Theme.cardRadius
        color: Theme.card
        border.width: 1
        border.color: Qt.alpha(Theme.lights[root.light], Theme.dark ? 0.4 : 0.5)
    }

    Column {
        id: column

        x: Theme.cardPadding
        y: Theme.cardPadding
        width: root.width - 2 * Theme.cardPadding
        spacing: Theme.spacing
    }
}

import QtQuick
import Ostrel

// The first line of a card: what it is about, behind its symbol.
Item {
    id: root

    required property string text
    required property int light  // whose colour the symbol has
    required property Component symbol
    property int size: Theme.bodySize + 1

    implicitHeight: Math.max(badge.height, label.implicitHeight)

    Rectangle {
        id: badge

        width: 32
        height: 32
        radius: 9
        color: Qt.alpha(Theme.lights[root.light], Theme.dark ? 0.18 : 0.14)

        Loader {
            anchors.centerIn: parent
            sourceComponent: root.symbol
        }
    }

    Text {
        id: label

        objectName: "cardHeading"
        anchors.left: badge.right
        anchors.leftMargin: 10
        anchors.right: parent.right
        y: Math.max(0, (badge.height - implicitHeight) / 2)
        wrapMode: Text.Wrap
        maximumLineCount: 4
        elide: Text.ElideRight
        text: root.text
        textFormat: Text.PlainText
        color: Theme.text
        font.pixelSize: root.size
        font.weight: Font.DemiBold
        Accessible.role: Accessible.Heading
        Accessible.name: text
    }
}

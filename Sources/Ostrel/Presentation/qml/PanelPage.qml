pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// A page of the panel: its heading with a line below it, what it shows, and at the foot the keys that it
// heeds.
FocusScope {
    id: root

    required property string title
    property string summary
    property int summarySize: Theme.bodySize
    property int summaryLines: 1
    property alias actions: actions.data  // beside the heading
    property alias below: below.data  // in the summary's place, where that is empty
    property alias hints: hints.data
    default property alias content: body.data

    focus: true

    Row {
        id: actions

        anchors.right: parent.right
        anchors.rightMargin: Theme.spacing
        y: Theme.headerLine - height / 2
        spacing: Theme.gap
    }

    Column {
        x: Theme.pageMargin
        y: Theme.headerTop
        width: (actions.width > 0 ? actions.x - Theme.spacing : root.width - Theme.pageMargin) - x
        spacing: 4

        Text {
            objectName: "pageTitle"
            text: root.title
            textFormat: Text.PlainText
            color: Theme.text
            font.pixelSize: Theme.titleSize
            font.weight: Font.DemiBold
            Accessible.role: Accessible.Heading
            Accessible.name: text
        }

        Text {
            objectName: "pageSummary"
            width: parent.width
            text: root.summary
            textFormat: Text.PlainText
            color: Theme.secondary
            wrapMode: root.summaryLines > 1 ? Text.WordWrap : Text.NoWrap
            maximumLineCount: root.summaryLines
            elide: Text.ElideRight
            font.pixelSize: root.summarySize
            Accessible.role: Accessible.StaticText
            Accessible.name: text
        }
    }

    Row {
        id: below

        x: Theme.pageMargin
        y: Theme.headerHeight - 14 - height
        spacing: 6
    }

    Rectangle {
        y: Theme.headerHeight - 1
        width: parent.width
        height: 1
        color: Theme.hairline
    }

    Item {
        id: body

        anchors.fill: parent
        anchors.topMargin: Theme.headerHeight
        anchors.bottomMargin: Theme.footerHeight
    }

    Rectangle {
        anchors.bottom: parent.bottom
        anchors.bottomMargin: Theme.footerHeight
        width: parent.width
        height: 1
        color: Theme.hairline
    }

    Row {
        id: hints

        anchors.horizontalCenter: parent.horizontalCenter
        anchors.bottom: parent.bottom
        height: Theme.footerHeight
        spacing: 18
    }
}

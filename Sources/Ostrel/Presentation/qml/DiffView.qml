pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// File changes line by line, coloured by what comes and what goes.
Rectangle {
    id: root

    required property RowList lines

    // The row of a folded change was pressed.
    signal unfolded(string key)

    objectName: "diffView"
    implicitHeight: Math.min(Theme.diffHeight, list.contentHeight + 2)
    radius: Theme.controlRadius
    color: Theme.detail
    border.width: 1
    border.color: list.activeFocus ? Theme.accent : Theme.hairline

    ListView {
        id: list

        anchors.fill: parent
        anchors.margins: 1
        clip: true
        boundsBehavior: Flickable.StopAtBounds
        activeFocusOnTab: true
        model: root.lines
        Accessible.role: Accessible.List
        Accessible.name: "Review file changes"
        Keys.onUpPressed: flick(0, 400)
        Keys.onDownPressed: flick(0, -400)

        delegate: Rectangle {
            id: line

            required property string key
            required property string kind
            required property string text
            readonly property bool folds: kind === "fold"

            width: list.width
            implicitHeight: Math.max(Theme.diffLine, words.implicitHeight + (kind === "file" || folds ? 8 : 2))
            color: Theme.diffSurfaces[kind]
            Accessible.role: folds ? Accessible.Button : Accessible.ListItem
            Accessible.name: text
            Accessible.onPressAction: if (folds) root.unfolded(key)
            activeFocusOnTab: folds
            Keys.onReturnPressed: event => folds ? root.unfolded(key) : event.accepted = false
            Keys.onSpacePressed: event => folds ? root.unfolded(key) : event.accepted = false

            Text {
                id: words

                x: 9
                width: parent.width - 20
                anchors.verticalCenter: parent.verticalCenter
                wrapMode: Text.WrapAtWordBoundaryOrAnywhere
                text: line.text
                textFormat: Text.PlainText
                color: Theme.diffTexts[line.kind]
                font.family: Theme.fixedFamily
                font.weight: line.kind === "file" || line.folds ? Font.DemiBold : Font.Normal
                font.pixelSize: Theme.captionSize
            }

            FocusRing {
                visible: line.activeFocus
            }

            HoverHandler {
                enabled: line.folds
                cursorShape: Qt.PointingHandCursor
            }

            TapHandler {
                enabled: line.folds
                onTapped: root.unfolded(line.key)
            }
        }
    }

    ScrollMark {
        view: list
    }
}

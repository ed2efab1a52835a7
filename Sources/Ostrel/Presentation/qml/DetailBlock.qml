pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Text as it would be run or granted: monospaced, to be selected and copied. What is cut says how much is below,
// and can be opened.
Rectangle {
    id: root

    required property string text
    property string label
    property bool opened: false
    readonly property bool cut: !opened && edit.implicitHeight + 16 > Theme.detailHeight
    readonly property int linesBelow: Math.max(0, Math.ceil((area.contentHeight - area.contentY - area.height - 7) / Math.max(1, metrics.lineSpacing)))
    // The text was on the screen down to its end.
    property bool wholeSeen: text === ""

    function look() {
        if (text === "" || (visible && edit.implicitHeight > 0 && area.height > 0 && linesBelow === 0))
            wholeSeen = true;
    }

    objectName: "detailBlock"
    implicitHeight: (opened ? edit.implicitHeight + 16 : Math.min(Theme.detailHeight, edit.implicitHeight + 16)) + (cut ? more.height : 0)
    radius: Theme.controlRadius
    color: Theme.detail
    border.width: 1
    border.color: edit.activeFocus ? Theme.accent : Theme.hairline
    onTextChanged: {
        wholeSeen = false;
        opened = false;
        Qt.callLater(look);
    }
    // Once everything has its size.
    onLinesBelowChanged: Qt.callLater(look)
    onVisibleChanged: Qt.callLater(look)
    onHeightChanged: Qt.callLater(look)
    Component.onCompleted: Qt.callLater(look)

    FontMetrics {
        id: metrics

        font: edit.font
    }

    Flickable {
        id: area

        anchors.fill: parent
        anchors.margins: 1
        anchors.bottomMargin: 1 + (root.cut ? more.height : 0)
        contentWidth: width
        contentHeight: edit.implicitHeight + 14
        clip: true
        boundsBehavior: Flickable.StopAtBounds

        TextEdit {
            id: edit

            objectName: "detailText"
            x: 9
            y: 7
            width: area.width - 20
            readOnly: true
            selectByMouse: true
            activeFocusOnTab: true
            textFormat: TextEdit.PlainText
            wrapMode: TextEdit.WrapAtWordBoundaryOrAnywhere
            // Letters of a script that runs the other way stay in the order in which they are run.
            horizontalAlignment: TextEdit.AlignLeft
            text: root.text
            color: Theme.text
            selectionColor: Theme.selection
            selectedTextColor: Theme.text
            font.family: Theme.fixedFamily
            font.pixelSize: Theme.codeSize
            onCursorRectangleChanged: {
                const top = y + cursorRectangle.y;
                area.contentY = Math.max(Math.min(area.contentY, top - 7), top + cursorRectangle.height + 7 - area.height, 0);
            }
            Accessible.role: Accessible.StaticText
            Accessible.name: root.label ? root.label + ": " + root.text : root.text
            Keys.onReturnPressed: event => event.accepted = false
            Keys.onPressed: event => {
                if (!event.matches(StandardKey.Copy))
                    return;
                copier.text = selectedText.replace(/[\u202d\u202c]/g, "");
                copier.selectAll();
                copier.copy();
                event.accepted = true;
            }
        }

        // What is copied goes without the marks that hold its order.
        TextEdit {
            id: copier

            visible: false
            textFormat: TextEdit.PlainText
            Accessible.ignored: true
        }
    }

    ScrollMark {
        view: area
    }

    Item {
        id: more

        objectName: "detailMore"
        anchors.left: parent.left
        anchors.right: parent.right
        anchors.bottom: parent.bottom
        height: 26
        visible: root.cut
        activeFocusOnTab: true
        Accessible.role: Accessible.Button
        Accessible.name: below.text
        Accessible.onPressAction: root.opened = true
        Keys.onReturnPressed: root.opened = true
        Keys.onSpacePressed: root.opened = true

        Rectangle {
            width: parent.width
            height: 1
            color: Theme.hairline
        }

        FocusRing {
            visible: more.activeFocus
        }

        Text {
            id: below

            objectName: "detailBelow"
            anchors.centerIn: parent
            text: root.linesBelow > 1 ? root.linesBelow + " more lines below · Show all" : root.linesBelow === 1 ? "1 more line below · Show all" : "Show all " + edit.lineCount + " lines"
            textFormat: Text.PlainText
            color: Theme.lightTexts[1]
            font.pixelSize: Theme.captionSize
            font.weight: Font.DemiBold
        }

        HoverHandler {
            cursorShape: Qt.PointingHandCursor
        }

        TapHandler {
            onTapped: root.opened = true
        }
    }
}

pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Words on a card.
Text {
    width: parent ? parent.width : implicitWidth
    visible: text !== ""
    wrapMode: Text.WrapAtWordBoundaryOrAnywhere
    textFormat: Text.PlainText
    color: Theme.text
    font.pixelSize: Theme.bodySize
    Accessible.role: Accessible.StaticText
    Accessible.name: text
    Accessible.ignored: !visible
}

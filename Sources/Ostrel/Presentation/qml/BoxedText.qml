pragma ComponentBehavior: Bound
import QtQuick

// A few characters in a box that they don't leave, whatever their script: smaller where they are wide, and cut
// off where that is not enough.
Text {
    textFormat: Text.PlainText
    clip: true
    horizontalAlignment: Text.AlignHCenter
    verticalAlignment: Text.AlignVCenter
    fontSizeMode: Text.Fit
    minimumPixelSize: 6
    maximumLineCount: 1
    wrapMode: Text.NoWrap
    font.weight: Font.DemiBold
}

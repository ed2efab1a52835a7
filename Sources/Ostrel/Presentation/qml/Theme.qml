pragma Singleton
pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Colours, sizes and durations of every view.
QtObject {
    readonly property bool dark: Appearance.dark
    readonly property bool motion: !Appearance.reducedMotion
    readonly property bool shadows: Appearance.composited

    // Surfaces. Opaque where the desktop shows no transparency.
    readonly property real glass: Appearance.composited ? 0.96 : 1
    readonly property color surfaceTop: dark ? Qt.rgba(0.157, 0.173, 0.204, glass) : Qt.rgba(1, 1, 1, glass)
    readonly property color surfaceBottom: dark ? Qt.rgba(0.118, 0.129, 0.157, glass) : Qt.rgba(0.957, 0.965, 0.976, glass)
    // Of what stands on backgrounds that nobody knows.
    readonly property color strongBorder: dark ? Qt.rgba(1, 1, 1, 0.42) : Qt.rgba(0.08, 0.12, 0.2, 0.55)
    readonly property color border: dark ? Qt.rgba(1, 1, 1, 0.11) : Qt.rgba(0.08, 0.12, 0.2, 0.13)
    readonly property color gleam: dark ? Qt.rgba(1, 1, 1, 0.07) : Qt.rgba(1, 1, 1, 0.9)
    readonly property color hairline: dark ? Qt.rgba(1, 1, 1, 0.07) : Qt.rgba(0.08, 0.12, 0.2, 0.08)
    readonly property color hovered: dark ? Qt.rgba(1, 1, 1, 0.06) : Qt.rgba(0.08, 0.16, 0.3, 0.05)
    readonly property color chosen: dark ? Qt.rgba(0.43, 0.62, 1, 0.17) : Qt.rgba(0.16, 0.42, 0.92, 0.1)
    readonly property color pressed: dark ? Qt.rgba(1, 1, 1, 0.1) : Qt.rgba(0.08, 0.16, 0.3, 0.09)

    // In conversations.
    readonly property color link: dark ? "#7db0ff" : "#1d63d8"
    readonly property color code: dark ? Qt.rgba(1, 1, 1, 0.055) : Qt.rgba(0.08, 0.16, 0.3, 0.045)
    readonly property color found: dark ? Qt.rgba(1, 0.75, 0.2, 0.38) : Qt.rgba(1, 0.78, 0.15, 0.5)
    readonly property color selection: dark ? Qt.rgba(0.43, 0.62, 1, 0.4) : Qt.rgba(0.16, 0.42, 0.92, 0.25)

    // Controls and cards.
    readonly property color accent: dark ? "#3d7bf0" : "#2a6df0"
    readonly property color accentHovered: dark ? "#4f8af8" : "#1f60df"
    readonly property color accentPressed: dark ? "#2f69d8" : "#1a54c8"
    readonly property color accentText: "#ffffff"
    readonly property color card: dark ? Qt.rgba(1, 1, 1, 0.045) : Qt.rgba(1, 1, 1, 0.85)
    readonly property color button: dark ? Qt.rgba(1, 1, 1, 0.09) : "#ffffff"
    readonly property color field: dark ? Qt.rgba(0, 0, 0, 0.22) : "#ffffff"
    readonly property color detail: dark ? Qt.rgba(0, 0, 0, 0.24) : Qt.rgba(0.08, 0.16, 0.3, 0.045)
    readonly property color outline: dark ? Qt.rgba(1, 1, 1, 0.16) : Qt.rgba(0.08, 0.12, 0.2, 0.18)
    readonly property color failure: dark ? "#ff9d96" : "#b3261e"
    readonly property var diffTexts: ({
            added: dark ? "#86e2b3" : "#116b3e",
            removed: dark ? "#ffa8a2" : "#a8231c",
            place: dark ? "#8dbdff" : "#1c5fd0",
            same: dark ? "#c3cbd8" : "#3a4454",
            fold: dark ? "#8dbdff" : "#1c5fd0",
            file: dark ? "#eef1f6" : "#171c25"
        })
    readonly property var diffSurfaces: ({
            added: dark ? Qt.rgba(0.25, 0.82, 0.55, 0.13) : Qt.rgba(0.09, 0.65, 0.39, 0.11),
            removed: dark ? Qt.rgba(1, 0.4, 0.38, 0.14) : Qt.rgba(0.89, 0.25, 0.22, 0.09),
            place: "transparent",
            same: "transparent",
            fold: dark ? Qt.rgba(1, 1, 1, 0.04) : Qt.rgba(0.08, 0.16, 0.3, 0.04),
            file: dark ? Qt.rgba(1, 1, 1, 0.06) : Qt.rgba(0.08, 0.16, 0.3, 0.06)
        })

    // Text.
    readonly property color text: dark ? "#eef1f6" : "#171c25"
    readonly property color secondary: dark ? "#a3adbd" : "#5a6577"
    readonly property color tertiary: dark ? "#7b8698" : "#7a8496"
    readonly property int titleSize: 16
    readonly property int bodySize: 13
    readonly property int captionSize: 11
    readonly property int codeSize: 12
    readonly property string fixedFamily: "monospace"

    // By the number of a light: needs you, working, done, idle. Each stands out from the surfaces by 3:1.
    readonly property list<color> lights: dark ? ["#ffb340", "#5aa2ff", "#3fd28b", "#7f8a9e"] : ["#c96f00", "#2f7cf6", "#14975a", "#7d8797"]
    readonly property list<int> lightSizes: [13, 11, 11, 5]
    readonly property color lightInk: dark ? "#2b1a00" : "#ffffff"  // of the mark in one that needs somebody
    readonly property list<color> lightTexts: dark ? ["#ffc466", "#8dbdff", "#6fe0aa", "#8e98a9"] : ["#a55c00", "#1c5fd0", "#0e7a48", "#687386"]

    // Sizes, in points.
    readonly property int margin: 8
    readonly property int spacing: 12
    readonly property int lightSize: 9
    readonly property int lightPitch: 17
    readonly property int rowHeight: 54
    readonly property int headingHeight: 32
    readonly property int headerHeight: 76
    readonly property int headerTop: 18
    readonly property int headerLine: 27  // the middle of the heading and of the buttons beside it
    readonly property int pageMargin: 20
    readonly property int footerHeight: 40
    readonly property int panelRadius: 16
    readonly property int railRadius: 18
    readonly property int notchRadius: 13
    readonly property int rowRadius: 10
    readonly property int readingMargin: 20
    readonly property int bubblePadding: 12
    readonly property int bubbleRadius: 14
    readonly property int cardRadius: 12
    readonly property int cardPadding: 14
    readonly property int controlHeight: 30
    readonly property int smallControlHeight: 24
    readonly property int controlRadius: 8
    readonly property int gap: 8
    readonly property int detailHeight: 172
    readonly property int diffHeight: 220
    readonly property int diffLine: 17

    // Durations, in milliseconds.
    readonly property int quick: motion ? 120 : 0
    readonly property int pulse: 1200
}

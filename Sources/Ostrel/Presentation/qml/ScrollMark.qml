pragma ComponentBehavior: Bound
import QtQuick
import Ostrel

// Shows how far a list or a page has been scrolled, and scrolls it when it is dragged.
Item {
    id: root

    required property Flickable view
    readonly property real share: view.visibleArea.heightRatio

    signal dragged

    visible: share < 1
    anchors.right: view.right
    anchors.top: view.top
    anchors.bottom: view.bottom
    width: 12
    Accessible.ignored: true

    Rectangle {
        id: thumb

        readonly property real room: root.height - 8 - height

        x: hover.hovered || drag.active ? 4 : 6
        y: 4 + room * Math.max(0, Math.min(1, root.view.visibleArea.yPosition / Math.max(0.0001, 1 - root.share)))
        width: hover.hovered || drag.active ? 6 : 4
        height: Math.max(28, (root.height - 8) * root.share)
        radius: width / 2
        color: Theme.tertiary
        opacity: hover.hovered || drag.active ? 0.8 : 0.4
    }

    HoverHandler {
        id: hover
    }

    DragHandler {
        id: drag

        property real from: 0

        target: null
        yAxis.enabled: true
        xAxis.enabled: false
        onActiveChanged: if (active) from = root.view.contentY
        onTranslationChanged: {
            const extent = root.view.contentHeight - root.view.height;
            const wanted = from + translation.y / Math.max(1, thumb.room) * extent;
            root.view.contentY = Math.max(root.view.originY, Math.min(root.view.originY + extent, wanted));
            root.dragged();
        }
    }
}

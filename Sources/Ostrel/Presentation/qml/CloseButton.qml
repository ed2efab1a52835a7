pragma ComponentBehavior: Bound
import Ostrel

// Closes a window.
IconButton {
    objectName: "closeButton"
    symbol: "close"
    name: "Close"
}

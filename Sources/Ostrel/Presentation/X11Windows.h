// What windows at the edge need of the X server beyond what Qt offers. Every call does nothing where Qt does
// not run on X11. Main thread only.
#pragma once

#include <QByteArray>
#include <QRect>
#include <QWindow>
#include <cstdint>
#include <vector>

#include "App/ScreenArea.h"

namespace ostrel::x11 {

// Whether a display server answers at the address. To be asked before Qt is started, which ends the program
// when it gets no answer.
bool reachable(const QByteArray& display);

// Above others, on every desktop, in no task bar. Window managers forget it whenever a window is hidden:
// `prepare` before it is shown, `announce` after.
void prepare(const QWindow& window);
void announce(const QWindow& window);

// The parts of the window that take clicks; elsewhere they reach what lies below. In the window's own points.
void setInput(const QWindow& window, const std::vector<QRect>& parts);

// A window of some program on the desktop.
struct ClientWindow {
  std::uint32_t id = 0;
  std::int64_t pid = 0;  // of the program, by its own word; 0 where it keeps silent
};
// Those that the window manager tends, the topmost last.
std::vector<ClientWindow> clientWindows();
// Brings a window of any program forward, with the desktop it is on, and gives it the keyboard.
void activate(std::uint32_t window);

// What other programs' bars have taken of the desktop's borders, in pixels. A few round trips a window.
std::vector<Strut> struts();
// What the window manager leaves for windows, in pixels: of each monitor where it tells that, otherwise of
// the whole desktop.
std::vector<Rect> workAreas();
Size desktopSize();  // pixels
// Whether the event tells that one of these may have changed.
bool changesAreas(const void* event);

// Whether transparent parts of windows show what lies below them.
bool composited();
// The window manager by its own name; empty where it has none.
QByteArray windowManager();
// Sends what was asked for: Qt 6.4 leaves the raising of a window in its buffer.
void flush();

}  // namespace ostrel::x11

// The four windows at the edge of the screen, as a port: they float above others on every desktop, have no
// border and take the keyboard only when told to or clicked. Whoever implements this decides nothing. Main
// thread only.
#pragma once

#include "Platform/Geometry.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

enum class EdgeWindow {
  notch,  // the handle that is always there
  rail,   // the column of agents and pages that comes out of it
  panel,  // a page: the agents, settings ...
  agent,  // one agent's conversation, beside the panel
};

// A change of a window's opacity, with its content sliding in from the right. The window itself stays where
// it is: window managers correct windows that leave the screen.
struct WindowMotion {
  double from = 0;  // opacity: 0 is invisible, 1 opaque; where the window stands if it is moving already
  double to = 1;
  int slide = 0;        // points to the right of its place at which the content begins
  Duration duration{};  // none: at once
  bool operator==(const WindowMotion&) const = default;

  // The timing curve's control points, as in CSS's cubic-bezier.
  static constexpr double curve[4] = {0.2, 0.9, 0.25, 1.0};
};

class EdgeWindows {
 public:
  EdgeWindows() = default;
  EdgeWindows(const EdgeWindows&) = delete;
  EdgeWindows& operator=(const EdgeWindows&) = delete;
  virtual ~EdgeWindows() = default;

  // Called only when the frame differs from the one before. A window is placed before it is first shown.
  virtual void place(EdgeWindow window, const Rect& frame) = 0;
  // Brings the window to the front, opaque or as its last motion left it. With `key` it gets the keyboard;
  // otherwise whoever has it keeps it.
  virtual void show(EdgeWindow window, bool key) = 0;
  virtual void hide(EdgeWindow window) = 0;
  // Replaces a motion that is under way. Its end is not reported.
  virtual void animate(EdgeWindow window, const WindowMotion& motion) = 0;
  // Whether clicks reach the window or what lies below it.
  virtual void takeClicks(EdgeWindow window, bool takes) = 0;

  // Whether the window has the keyboard.
  virtual bool isKey(EdgeWindow window) const = 0;
  // Whether a dialog of the program waits for an answer.
  virtual bool hasDialog() const = 0;
  // The person's wish for an interface without motion.
  virtual bool reducedMotion() const = 0;
};

}  // namespace ostrel

// The screens of the desktop, as a port. Main thread only.
#pragma once

#include <optional>

#include "Platform/Geometry.h"

namespace ostrel {

struct Screen {
  Rect frame;    // all of it
  Rect visible;  // without the desktop's own bars
  bool operator==(const Screen&) const = default;
};

class Screens {
 public:
  Screens() = default;
  Screens(const Screens&) = delete;
  Screens& operator=(const Screens&) = delete;
  virtual ~Screens() = default;

  // The screen that the edge belongs to at present; nothing while there is none (a lid that is closed, a
  // display server that is restarting).
  virtual std::optional<Screen> main() const = 0;
};

}  // namespace ostrel

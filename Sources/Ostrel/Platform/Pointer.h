// Where the pointer is, as a port. Main thread only.
#pragma once

#include <functional>

#include "Platform/Geometry.h"
#include "Runtime/Registration.h"

namespace ostrel {

class Pointer {
 public:
  using Moved = std::move_only_function<void(Point)>;

  Pointer() = default;
  Pointer(const Pointer&) = delete;
  Pointer& operator=(const Pointer&) = delete;
  virtual ~Pointer() = default;

  // Tells where the pointer is, anywhere on the desktop: once on a later turn of the loop, then whenever it
  // has moved, at most 60 times a second, the last place of a movement always among them. A pointer at rest
  // must cost nothing where the display server reports motion; where it does not, looking 60 times a second
  // is the implementation's business. There is one follower at a time;
  // `moved` may end it.
  virtual Registration follow(Moved moved) = 0;
};

}  // namespace ostrel

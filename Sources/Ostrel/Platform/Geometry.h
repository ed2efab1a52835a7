// Places on the desktop, as plain values. The unit is the desktop's own point (device pixels divided by its
// scale), the origin lies at the upper left of the desktop, y grows downwards.
#pragma once

#include <optional>

namespace ostrel {

struct Point {
  int x = 0;
  int y = 0;
  bool operator==(const Point&) const = default;
};

struct Size {
  int width = 0;
  int height = 0;
  bool operator==(const Size&) const = default;
};

struct Rect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;
  bool operator==(const Rect&) const = default;

  int right() const { return x + width; }
  int bottom() const { return y + height; }
  int middleY() const { return y + height / 2; }
  // The left and upper edges belong to it, the right and lower ones to what lies beyond.
  bool contains(Point point) const {
    return point.x >= x && point.x < right() && point.y >= y && point.y < bottom();
  }
  // Larger by `dx` on the left and on the right, by `dy` above and below.
  Rect grown(int dx, int dy) const { return {x - dx, y - dy, width + 2 * dx, height + 2 * dy}; }
};

}  // namespace ostrel

// The part of one screen that the desktop's own bars leave, worked out from what X11 tells of the whole
// desktop: window managers give one area for all screens together, in which a bar that stands on one of them
// alone may not show. Pure; pixels.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "Platform/Geometry.h"

namespace ostrel {

// What a bar has taken of one border of the desktop (`_NET_WM_STRUT_PARTIAL`).
struct Strut {
  enum class Side { left, right, top, bottom };
  Side side = Side::left;
  int depth = 0;  // from the border of the whole desktop, whatever screens lie between
  int first = 0;  // where along that border it begins ...
  int last = 0;   // ... and ends, both included
  bool operator==(const Strut&) const = default;
};

// Of the property's twelve words, or of the four of the older `_NET_WM_STRUT`, which has no ends. Anything
// else has none.
std::vector<Strut> strutsOf(std::span<const std::uint32_t> words);

// `screen` without what `struts` take on it. A strut that would take half of it or more does not mean this
// screen, but one behind it. Of `workAreas` those count that leave at least half of it.
Rect visibleArea(const Rect& screen, Size desktop, std::span<const Strut> struts,
                 std::span<const Rect> workAreas);

}  // namespace ostrel

#include "App/ScreenArea.h"

#include <algorithm>
#include <limits>

namespace ostrel {

namespace {

Rect common(const Rect& a, const Rect& b) {
  const int x = std::max(a.x, b.x);
  const int y = std::max(a.y, b.y);
  return {x, y, std::min(a.right(), b.right()) - x, std::min(a.bottom(), b.bottom()) - y};
}

bool mostOf(const Rect& part, const Rect& screen) {
  return 2 * part.width > screen.width && 2 * part.height > screen.height;
}

// What is left of the desktop where the strut is.
Rect left(const Strut& strut, Size desktop) {
  switch (strut.side) {
    case Strut::Side::left:
      return {strut.depth, 0, desktop.width - strut.depth, desktop.height};
    case Strut::Side::right:
      return {0, 0, desktop.width - strut.depth, desktop.height};
    case Strut::Side::top:
      return {0, strut.depth, desktop.width, desktop.height - strut.depth};
    case Strut::Side::bottom:
      break;
  }
  return {0, 0, desktop.width, desktop.height - strut.depth};
}

bool alongside(const Strut& strut, const Rect& screen) {
  const bool upright = strut.side == Strut::Side::left || strut.side == Strut::Side::right;
  const int first = upright ? screen.y : screen.x;
  const int last = (upright ? screen.bottom() : screen.right()) - 1;
  return strut.first <= last && strut.last >= first;
}

}  // namespace

std::vector<Strut> strutsOf(std::span<const std::uint32_t> words) {
  constexpr std::uint32_t kFarthest = 1u << 20;  // pixels; beyond it nothing is meant
  std::vector<Strut> struts;
  if (words.size() < 4) return struts;
  for (std::size_t side = 0; side < 4; ++side) {
    if (words[side] == 0 || words[side] > kFarthest) continue;
    Strut strut{static_cast<Strut::Side>(side), static_cast<int>(words[side]), 0,
                std::numeric_limits<int>::max()};
    if (words.size() >= 12) {
      strut.first = static_cast<int>(std::min(words[4 + 2 * side], kFarthest));
      strut.last = static_cast<int>(std::min(words[5 + 2 * side], kFarthest));
    }
    struts.push_back(strut);
  }
  return struts;
}

Rect visibleArea(const Rect& screen, Size desktop, std::span<const Strut> struts,
                 std::span<const Rect> workAreas) {
  Rect visible = screen;
  const auto keep = [&](const Rect& rest) {
    if (mostOf(common(screen, rest), screen) && mostOf(common(visible, rest), screen))
      visible = common(visible, rest);
  };
  for (const Strut& strut : struts) {
    if (alongside(strut, screen)) keep(left(strut, desktop));
  }
  for (const Rect& area : workAreas) keep(area);
  return visible;
}

}  // namespace ostrel

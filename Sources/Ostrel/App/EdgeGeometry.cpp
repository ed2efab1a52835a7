#include "App/EdgeGeometry.h"

#include <algorithm>
#include <utility>

namespace ostrel::edge {

namespace {

constexpr int kMargin = 8;  // between a window and the border of the visible screen

int panelHeight(PanelTab tab, int selectorRows) {
  switch (tab) {
    case PanelTab::agents:
      // Where the screen ends the list scrolls.
      return std::max(selectorRows, 1) * kSelectorRowHeight + 132 + 16;
    case PanelTab::settings:
      return 496;
    case PanelTab::notes:
      return 476;
    case PanelTab::machines:
      return 536;
    case PanelTab::connections:
      break;
  }
  return 406;
}

}  // namespace

NotchLights notchLights(std::vector<AgentLight> all) {
  std::ranges::sort(all);
  const std::size_t shown = std::min<std::size_t>(all.size(), kNotchLightLimit);
  const int more = static_cast<int>(all.size() - shown);
  all.resize(shown);
  return {std::move(all), more};
}

int railRows(const Screen& screen, const Counts& counts) {
  if (counts.agents == 0) return 0;
  const int rest = railCollapsedHeight(1, counts) - kRailRowHeight;
  const int fitting = (screen.visible.height - rest) / kRailRowHeight;
  return std::clamp(fitting, 1, std::min(counts.agents, kRailRowLimit));
}

int railCollapsedHeight(int rows, const Counts& counts) {
  return std::max(rows, 1) * kRailRowHeight + 16 + (rows > 0 ? kRailMoreHeight : 0) + 8 + 6 + kPillHeight +
         (counts.updateOffered ? 42 : 0);
}

Rect notchFrame(const Screen& screen, const Counts& counts) {
  const int lights = counts.notchLights ? std::min(counts.lights, kNotchLightLimit) : 0;
  const int height = (lights > 0 ? 18 + kNotchLightPitch * lights : 56) +
                     (lights > 0 && counts.lights > lights ? kNotchMoreHeight : 0) +
                     (counts.updateOffered ? kNotchLightPitch : 0);
  return {screen.frame.right() - kNotchWidth, screen.visible.middleY() - height / 2, kNotchWidth, height};
}

Rect railFrame(const Screen& screen, const Counts& counts) {
  const int collapsed = railCollapsedHeight(railRows(screen, counts), counts);
  return {screen.visible.right() - 58, screen.visible.middleY() - collapsed / 2, kRailWidth,
          collapsed + kPillRoom};
}

Rect panelFrame(const Screen& screen, const Rect& rail, PanelTab tab, const Counts& counts) {
  const Rect& visible = screen.visible;
  const int width = std::min(visible.width - 2 * kMargin, 416);
  const int height = std::min(visible.height - 2 * kMargin, panelHeight(tab, counts.selectorRows));
  const int x =
      std::max(std::min(rail.x - width - 4, visible.right() - width - kMargin), visible.x + kMargin);
  const int y =
      std::min(std::max(rail.middleY() - 90, visible.y + kMargin), visible.bottom() - kMargin - height);
  return {x, y, width, height};
}

Rect agentFrame(const Screen& screen, const Rect& beside, Size size) {
  const Rect& visible = screen.visible;
  const int width = std::min(size.width, visible.width - 2 * kMargin);
  const int height = std::min(size.height, visible.height - 2 * kMargin);
  return {std::max(beside.x - width, visible.x + kMargin),
          std::min(beside.y, visible.bottom() - kMargin - height), width, height};
}

}  // namespace ostrel::edge

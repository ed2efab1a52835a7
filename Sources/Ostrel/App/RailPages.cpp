#include "App/RailPages.h"

#include <algorithm>

namespace ostrel::rail {

namespace {

constexpr RailButton kFurther[] = {
    {"gauge.with.dots.needle.67percent", "Usage", {PanelTab::agents, true}},
    {"note.text", "Notes", {PanelTab::notes, false}},
    {"dot.radiowaves.left.and.right", "Machines", {PanelTab::machines, false}},
    {"gearshape", "Settings", {PanelTab::settings, false}},
};

constexpr int kUpdateHeight = 36;
constexpr int kGap = 6;
constexpr int kPadding = 8;

}  // namespace

std::vector<RailButton> furtherPages(const std::set<RailPage>& available) {
  std::vector<RailButton> buttons(std::begin(kFurther), std::end(kFurther));
  std::erase_if(buttons, [&](const RailButton& button) { return !available.contains(button.page); });
  return buttons;
}

std::vector<RailItem> items(int rows, const edge::Counts& counts, int pages, bool pillOpen) {
  using Kind = RailItem::Kind;
  std::vector<RailItem> result;
  int y = 0;
  const auto add = [&](Kind kind, int index, int height) {
    result.push_back({kind, index, y, height});
    y += height;
  };
  if (counts.updateOffered) {
    add(Kind::update, 0, kUpdateHeight);
    y += kGap;
  }
  y += kPadding;
  if (rows == 0) add(Kind::showAgents, 0, edge::kRailRowHeight);
  for (int row = 0; row < rows; ++row) add(Kind::agent, row, edge::kRailRowHeight);
  if (rows < counts.lights) {
    add(Kind::more, counts.lights - rows, edge::kRailMoreHeight);
  } else if (rows > 0) {
    add(Kind::showAgents, 0, edge::kRailMoreHeight);
  }
  y += kPadding + kPadding;
  if (pages == 0) return result;
  add(Kind::pill, 0, edge::kPillHeight);
  for (int page = 0; pillOpen && page < pages; ++page) add(Kind::page, page, edge::kPillItemHeight);
  return result;
}

Duration entranceDelay(int index, bool expanded, bool reducedMotion) {
  if (!expanded || reducedMotion) return {};
  return std::min(index * kEntranceStagger, kEntranceLimit);
}

}  // namespace ostrel::rail

// What stands where in the rail: its rows from top to bottom, the pages of the pill, and how they come in.
// Pure.
#pragma once

#include <set>
#include <span>
#include <string_view>
#include <vector>

#include "App/EdgeGeometry.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// A page that a button of the rail opens. The usage page stands in the agent list's place, so that the two
// differ only in `usage`.
struct RailPage {
  PanelTab tab = PanelTab::agents;
  bool usage = false;
  bool operator==(const RailPage&) const = default;
  auto operator<=>(const RailPage&) const = default;

  static const RailPage agents;
};
inline constexpr RailPage RailPage::agents = {};

// A button of the pill.
struct RailButton {
  std::string_view symbol;  // the name of its picture
  std::string_view label;
  RailPage page;
  bool operator==(const RailButton&) const = default;
};

struct RailItem {
  enum class Kind {
    update,      // offers the new version
    showAgents,  // the agent list: the last row where each agent has one, or the only row
    agent,       // `index` counts the rail's agents
    more,        // the same where it also says how many agents have no row: `index` of them
    pill,        // the further pages
    page,        // one of them, while the pill is open; `index` counts its buttons
  };
  Kind kind = Kind::agent;
  int index = 0;
  int y = 0;  // points from the top of the rail's window
  int height = 0;
  bool operator==(const RailItem&) const = default;
};

namespace rail {

// The pill closes this long after the pointer left it, unless the pointer comes back.
inline constexpr Duration kPillDelay = std::chrono::milliseconds(250);
// Rows come in on a spring of this response, one after the other; they leave together and at once.
inline constexpr Duration kEntranceResponse = std::chrono::milliseconds(260);
inline constexpr Duration kEntranceStagger = std::chrono::milliseconds(18);
// No row waits longer, however long the rail is.
inline constexpr Duration kEntranceLimit = std::chrono::milliseconds(180);

// The pill's buttons, in order, of those pages that the program has.
std::vector<RailButton> furtherPages(const std::set<RailPage>& available);

// All items for the collapsed or open pill. `rows` is what `edge::railRows` gave, `pages` the number of the
// pill's buttons; without any there is no pill.
std::vector<RailItem> items(int rows, const edge::Counts& counts, int pages, bool pillOpen);

// How long the row of that index waits before it comes in; none on leaving and with reduced motion.
Duration entranceDelay(int index, bool expanded, bool reducedMotion);

}  // namespace rail
}  // namespace ostrel

// What the windows at the edge of the screen are at, for the views and whoever else must know whether they
// are seen. `EdgeState` alone is given it to write; everybody else has it as `const`. Main thread only.
#pragma once

#include <optional>
#include <string>

#include "App/RailPages.h"
#include "Runtime/Published.h"

namespace ostrel {

struct InterfaceState {
  Published<RailPage> page;                         // the panel's, also while the panel is closed
  Published<bool> isPanelVisible;                   // false from the beginning of its fading on
  Published<bool> showingNewSession;                // the sheet for a new agent, which keeps its panel open
  Published<int> selectorWidth;                     // points, of the agent list
  Published<std::optional<std::string>> openAgent;  // the id of the one whose conversation is shown
  Published<bool> railExpanded;                     // the rail's rows are in
  Published<bool> pillExpanded;                     // the pill shows its pages
  Published<bool> notchAway;                        // the handle has slid off
  Published<bool> breathing;                        // lights that need the person move, for a while
};

}  // namespace ostrel

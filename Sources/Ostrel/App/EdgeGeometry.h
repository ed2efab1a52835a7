// Where the four windows at the edge stand, and how large they are. Pure functions over screens and counts.
//
// All of it belongs to the right edge of the main screen. The handle is centred on the visible part of that
// edge and touches the screen's own border; the rail's buttons are centred like it, with room below them in
// which the pill of further pages opens; the panel stands left of the rail, the conversation left of the
// panel.
#pragma once

#include <vector>

#include "Agents/HerdrAgent.h"
#include "Platform/Geometry.h"
#include "Platform/Screens.h"

namespace ostrel {

// The pages of the panel, by the numbers they have had since the first version.
enum class PanelTab { agents = 0, connections = 2, settings = 4, notes = 5, machines = 6 };

namespace edge {

// What the heights depend on.
struct Counts {
  int agents = 0;           // the rows that the rail would like to show
  int lights = 0;           // the agents that have a light
  int selectorRows = 0;     // rows of the agent list, its headings and the problems above it converted
  bool notchLights = true;  // lights on the handle are wanted
  bool updateOffered = false;
  bool operator==(const Counts&) const = default;
};

inline constexpr int kNotchWidth = 26;
inline constexpr int kNotchLightLimit = 5;  // more would make a long handle that nobody reads
inline constexpr int kNotchLightPitch = 17;
inline constexpr int kNotchMoreHeight = 13;  // the number of the agents without a light
inline constexpr int kRailWidth = 54;
inline constexpr int kRailRowHeight = 22;
inline constexpr int kRailRowLimit = 12;    // more are quicker found in the list
inline constexpr int kRailMoreHeight = 18;  // the last row, which stands for the list
inline constexpr int kPillHeight = 36;
inline constexpr int kPillItemHeight = 28;
inline constexpr int kPillRoom = 112;  // four of them, below the collapsed rail
inline constexpr int kSelectorRowHeight = 54;
inline constexpr Size kAgentWindowSize = {560, 580};  // of a conversation that nobody has resized
inline constexpr Size kSmallestAgentWindow = {416, 300};

// What the handle shows of all lights: the most urgent first, and how many more there are.
struct NotchLights {
  std::vector<AgentLight> shown;
  int more = 0;
};
NotchLights notchLights(std::vector<AgentLight> all);

// How many agents get a row of their own: at most `kRailRowLimit`, and as many as fit the visible screen.
int railRows(const Screen& screen, const Counts& counts);
// Without the room for the open pill. `rows` is what `railRows` gave.
int railCollapsedHeight(int rows, const Counts& counts);

Rect notchFrame(const Screen& screen, const Counts& counts);
Rect railFrame(const Screen& screen, const Counts& counts);
Rect panelFrame(const Screen& screen, const Rect& rail, PanelTab tab, const Counts& counts);
// Its right edge touches `beside`, the panel's frame or one without width where there is no panel; its top is
// level with it. Where the screen is too narrow for both it covers that rather than leave the screen.
Rect agentFrame(const Screen& screen, const Rect& beside, Size size);

}  // namespace edge
}  // namespace ostrel

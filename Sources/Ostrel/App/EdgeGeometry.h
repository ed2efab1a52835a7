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
inline constexpr int kNotchLightLimit = 7;  // more would make a long handle that nobody reads
inline constexpr int kNotchLightPitch = 17;
inline constexpr int kNotchMoreHeight = 13;  // the number of the agents without a light
inline constexpr int kRailWidth = 54;
inline constexpr int kRailRowHeight = 22;
inline constexpr int kRailMoreHeight = 18;  // the row that counts the agents without a row
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

// The agents that get a row of their own: all of them, as far as the rail fits the visible screen.
int railRows(const Screen& screen, const Counts& counts);
// Without the room for the open pill. `rows` is what `railRows` gave.
int railCollapsedHeight(int rows, const Counts& counts);

Rect notchFrame(const Screen& screen, const Counts& counts);
Rect railFrame(const Screen& screen, const Counts& counts);
Rect panelFrame(const Screen& screen, const Rect& rail, PanelTab tab, const Counts& counts);
// Its right edge touches the panel, its top is level with the panel's. Where the screen is too narrow for
// both it covers the panel rather than leave the screen.
Rect agentFrame(const Screen& screen, const Rect& panel, Size size);

}  // namespace edge
}  // namespace ostrel

#include "Agents/AgentState.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace ostrel {

namespace {

constexpr std::string_view kNames[] = {"unknown", "idle", "done", "working", "blocked"};

}  // namespace

std::string_view stateName(AgentState state) { return kNames[std::to_underlying(state)]; }

AgentState stateNamed(std::string_view name) {
  const auto found = std::ranges::find(kNames, name);
  return found == std::end(kNames) ? AgentState::unknown
                                   : static_cast<AgentState>(found - std::begin(kNames));
}

}  // namespace ostrel

// Decides each agent's light, and remembers what that takes: when an agent's state changed, and when the
// person last looked at it. Main thread only.
//
// Lights are never stored: they depend on what was seen and on the time, so they are computed at each use.
#pragma once

#include <map>
#include <string>
#include <string_view>

#include "Agents/AgentList.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class AgentLights {
 public:
  // `launchedAt` is the "seen" time of agents that were never looked at.
  explicit AgentLights(WallTime launchedAt) : launchedAt_(launchedAt) {}

  // For an external agent this looks at its transcript's modification date: one `stat`, no other input or
  // output.
  AgentLight light(const HerdrAgent& agent, WallTime now) const;

  // Notes the state of each agent and the time of a change. An agent observed for the first time counts as
  // changed long ago, so that a start does not light up every agent that had finished before.
  void observeStates(const AgentList& agents, WallTime now);

  // The person has looked at the agent.
  void markSeen(std::string_view id, WallTime now);

 private:
  struct Change {
    AgentState state;
    WallTime at;
  };
  WallTime launchedAt_;
  std::map<std::string, WallTime, std::less<>> seenAt_;
  std::map<std::string, Change, std::less<>> stateChanges_;
};

}  // namespace ostrel

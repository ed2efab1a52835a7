#include "Client/AgentLights.h"

#include <optional>

namespace ostrel {

AgentLight AgentLights::light(const HerdrAgent& agent, WallTime now) const {
  if (agent.state == AgentState::blocked) return AgentLight::needsYou;
  if (agent.state == AgentState::working || agent.recentlyActive(now)) return AgentLight::working;

  const std::string id = agent.id();
  std::optional<WallTime> changed = agent.since;
  if (!changed) {
    const auto change = stateChanges_.find(id);
    if (change == stateChanges_.end()) return AgentLight::idle;
    changed = change->second.at;
  }
  if (agent.state != AgentState::done && agent.state != AgentState::idle) return AgentLight::idle;
  const auto seen = seenAt_.find(id);
  return *changed > (seen == seenAt_.end() ? launchedAt_ : seen->second) ? AgentLight::done
                                                                         : AgentLight::idle;
}

void AgentLights::observeStates(const AgentList& agents, WallTime now) {
  for (const auto& listed : agents.entries()) {
    const AgentState state = listed->agent.state;
    const auto [entry, fresh] = stateChanges_.try_emplace(listed->id, Change{state, kDistantPast});
    if (!fresh && entry->second.state != state) entry->second = {state, now};
  }
}

void AgentLights::markSeen(std::string_view id, WallTime now) {
  seenAt_.insert_or_assign(std::string(id), now);
}

}  // namespace ostrel

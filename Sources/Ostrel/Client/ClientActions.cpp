#include "Client/ClientActions.h"

#include <utility>

#include "Client/ConversationLinks.h"
#include "Client/SelectedAgent.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

std::optional<std::string> ClientActions::refusal(AgentAction action, std::string_view id) {
  const HerdrAgent* const agent = parts_.inventory.find(id);
  if (!agent) return "This agent is not there any more.";
  if (action != AgentAction::link && action != AgentAction::unlink) return std::nullopt;
  const auto key = linkKey(*agent);
  if (!key) return "This pane has not told its terminal, so it can't be linked.";
  if (action == AgentAction::unlink) {
    if (parts_.preferences.string(*key)) return std::nullopt;
    return "No conversation was linked to this agent.";
  }
  if (!SelectedAgent::hasHistory(*agent)) return "The conversations of this agent can't be read from files.";
  if (agent->transcriptReference)
    return "This agent tells its conversation itself, so no other can be linked.";
  return std::nullopt;
}

const HerdrAgent& ClientActions::allowed(AgentAction action, std::string_view id) {
  if (auto words = refusal(action, id)) throw Failure(std::move(*words));
  return *parts_.inventory.find(id);
}

void ClientActions::open(std::string_view id, bool markSeen) {
  parts_.open.open(allowed(AgentAction::open, id), markSeen);
}

void ClientActions::rename(std::string_view id, std::string_view title) {
  const std::string key = "agentTitle." + allowed(AgentAction::rename, id).id();
  const std::string_view trimmed = text::trim(title);
  if (trimmed.empty()) {
    parts_.preferences.remove(key);
  } else {
    parts_.preferences.set(key, trimmed);
  }
  changed_();
}

// A thread that stands for a terminal: the link is the terminal's.
std::optional<std::string> ClientActions::linkKey(const HerdrAgent& agent) {
  return manualLinkKey(parts_.inventory.terminalOf(agent).value_or(agent));
}

void ClientActions::link(std::string_view id, const std::string& path) {
  const HerdrAgent agent = allowed(AgentAction::link, id);
  parts_.preferences.set(*linkKey(agent), path);
  linkChanged(agent);
}

void ClientActions::unlink(std::string_view id) {
  const HerdrAgent agent = allowed(AgentAction::unlink, id);
  parts_.preferences.remove(*linkKey(agent));
  linkChanged(agent);
}

void ClientActions::linkChanged(const HerdrAgent& agent) {
  changed_();
  parts_.open.linkChanged(agent);
}

}  // namespace ostrel

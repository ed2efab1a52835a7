#include "Client/OpenAgent.h"

#include <utility>

#include "Client/AgentLabels.h"

namespace ostrel {

OpenAgent::OpenAgent(MainLoop& loop, Parts parts)
    : parts_(parts),
      content_(loop, {parts.preferences, parts.link, parts.inventory, parts.transcripts}),
      selection_({parts.inventory, parts.link.agents(), parts.codex, parts.preferences}, *this) {
  const auto tell = [this] { changed_.notify(); };
  subscriptions_.push_back(selection_.selectedID().observe(tell));
  subscriptions_.push_back(parts_.link.active().observe(tell));
  subscriptions_.push_back(parts_.link.connected().observe(tell));
  subscriptions_.push_back(parts_.machines.observe(tell));
  subscriptions_.push_back(content_.shown().output.observe([this] { outputChanged(); }));
}

std::optional<HerdrAgent> OpenAgent::agent() const {
  const HerdrAgent* const agent = selection_.selected();
  return agent ? std::optional(*agent) : std::nullopt;
}

std::string OpenAgent::statusLabel(const HerdrAgent& agent) const {
  const bool open = *selection_.selectedID() == agent.id();
  const bool connected =
      agent.isRemote() ? parts_.machines->contains(agent.machine->id) : *parts_.link.connected();
  return agentLabels::statusLabel(agent, {.connected = connected,
                                          .reconnecting = *parts_.link.active() && !connected,
                                          .light = parts_.lit.light(agent),
                                          .output = open ? std::string_view(*shown().output) : ""});
}

void OpenAgent::open(const HerdrAgent& agent, bool markSeen) {
  selection_.select(selection_.opening(agent), markSeen);
}

void OpenAgent::close(bool forget) {
  selection_.clear();
  if (forget) content_.close(true);
}

void OpenAgent::linkChanged(const HerdrAgent& agent) {
  if (*selection_.selectedID() == agent.id() && parts_.transcripts) content_.open(agent);
}

void OpenAgent::selected(const HerdrAgent& agent, bool markSeen) {
  if (markSeen) parts_.lit.markSeen(agent.id());
  if (parts_.transcripts) content_.open(agent);
}

void OpenAgent::outputChanged() {
  const HerdrAgent* const agent = selection_.selected();
  std::string label = agent ? statusLabel(*agent) : std::string();
  if (label == label_) return;
  label_ = std::move(label);
  changed_.notify();
}

}  // namespace ostrel

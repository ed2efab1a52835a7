#include "Client/AgentSelection.h"

#include <algorithm>
#include <utility>

#include "Client/ConversationLinks.h"

namespace ostrel {

AgentSelection::AgentSelection(Sources sources, Listener& listener)
    : sources_(sources), listener_(listener) {}

const HerdrAgent* AgentSelection::selected() const {
  return *selectedID_ ? sources_.inventory.find(**selectedID_) : nullptr;
}

HerdrAgent AgentSelection::opening(const HerdrAgent& agent) const {
  if (!agent.isExternal() || agent.isCodexLive() || agent.herdrOwned || agent.provider != "codex")
    return agent;
  const std::vector<HerdrAgent>& threads = *sources_.codex;
  if (const auto conversation = linkedConversation(agent, sources_.preferences)) {
    const auto thread = std::ranges::find(threads, *conversation, &HerdrAgent::paneID);
    return thread == threads.end() ? agent : *thread;
  }
  if (agent.codexTie && agent.codexTie->client == false) return agent;
  // With just one live thread there is nothing to confuse it with.
  return threads.size() == 1 && threads[0].acceptsDirectInput ? threads[0] : agent;
}

void AgentSelection::select(const HerdrAgent& agent, bool markSeen) {
  const HerdrAgent chosen = agent;  // may be a record that the callbacks replace
  lost_.reset();
  terminal_ = chosen.terminalID;
  selectedID_.set(chosen.id());
  listener_.selected(chosen, markSeen);
}

void AgentSelection::clear() {
  lost_.reset();
  if (!*selectedID_) return;
  terminal_.reset();
  selectedID_.set(std::nullopt);
  listener_.cleared();
}

void AgentSelection::lose() {
  std::optional<std::string> id = *selectedID_;
  clear();
  lost_ = std::move(id);
}

bool AgentSelection::takeUp() {
  if (*selectedID_) return true;
  const HerdrAgent* const back = lost_ ? sources_.inventory.find(*lost_) : nullptr;
  if (back) select(opening(*back), true);
  return false;
}

void AgentSelection::reconcile() {
  if (!takeUp()) return;
  const HerdrAgent* const record = selected();
  if (!record) return lose();
  const HerdrAgent target = opening(*record);
  if (target.id() != **selectedID_) {
    select(target, true);
  } else if (target.isExternal() || target.isCodexLive()) {
    listener_.refreshed(target);
  }
}

void AgentSelection::herdrChanged() {
  if (!takeUp()) return;
  const std::vector<HerdrAgent>& panes = *sources_.herdr;
  const auto pane =
      std::ranges::find(panes, **selectedID_, [](const HerdrAgent& agent) { return agent.id(); });
  if (pane == panes.end()) {
    if (!selected()) lose();
  } else if (pane->terminalID != terminal_) {
    const HerdrAgent taken = *pane;
    selectedID_.set(std::nullopt);
    select(taken, true);
  }
}

}  // namespace ostrel

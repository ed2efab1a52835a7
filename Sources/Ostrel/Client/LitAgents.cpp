#include "Client/LitAgents.h"

#include <utility>

namespace ostrel {

LitAgents::LitAgents(MainLoop& loop, Sources sources)
    : loop_(loop),
      sources_(std::move(sources)),
      lights_(loop.wallNow()),
      throttle_(loop, kDelivery, [this] { deliver(); }) {}

LitList LitAgents::current() {
  const Inventory& inventory = sources_.inventory();
  const WallTime now = loop_.wallNow();
  LitList list;
  const auto light = [&](const AgentList& agents, std::vector<LitAgent>& lit) {
    lit.reserve(agents.size());
    for (const AgentList::Entry& listed : agents.entries())
      lit.push_back({listed, lights_.light(listed->agent, now)});
  };
  light(inventory.primary, list.agents);
  light(inventory.loadedCodex, list.loadedCodex);
  list.complete = sources_.complete();
  return list;
}

void LitAgents::deliver() {
  // A light depends on the change of state that is noted just before it is computed.
  lights_.observeStates(sources_.inventory().all, loop_.wallNow());
  sources_.reconcileRequests();
  list_ = current();
  delivered_ = true;
  told_.notify();
}

void LitAgents::roundEnded() {
  // The first round that finds nobody counts as a delivery too.
  if (!delivered_ || current() != list_) throttle_.request();
}

void LitAgents::markSeen(std::string_view id) {
  lights_.markSeen(id, loop_.wallNow());
  throttle_.request();
}

}  // namespace ostrel

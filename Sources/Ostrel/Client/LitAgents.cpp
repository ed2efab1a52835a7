#include "Client/LitAgents.h"

#include <utility>

namespace ostrel {

LitAgents::LitAgents(MainLoop& loop, AgentInventory& inventory, Round& round)
    : loop_(loop),
      inventory_(inventory),
      round_(round),
      lights_(loop.wallNow()),
      throttle_(loop, kDelivery, [this] { deliver(); }) {}

LitList LitAgents::current() {
  const Inventory& inventory = inventory_.merged();
  const WallTime now = loop_.wallNow();
  LitList list;
  const auto light = [&](const AgentList& agents, std::vector<LitAgent>& lit) {
    lit.reserve(agents.size());
    for (const AgentList::Entry& listed : agents.entries())
      lit.push_back({listed, lights_.light(listed->agent, now)});
  };
  light(inventory.primary, list.agents);
  light(inventory.loadedCodex, list.loadedCodex);
  list.complete = round_.complete();
  return list;
}

void LitAgents::deliver() {
  // A light depends on the change of state that is noted just before it is computed.
  lights_.observeStates(inventory_.merged().all, loop_.wallNow());
  round_.reconcileRequests();
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

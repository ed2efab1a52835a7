#include "Client/HerdrClient.h"

#include <utility>

#include "Discovery/ExternalAgents.h"

namespace ostrel {

HerdrClient::HerdrClient(Ports ports, LocalDiscovery::Scan scanExternal, std::filesystem::path claudeSessions)
    : loop_(ports.loop),
      lights_(ports.loop.wallNow()),
      local_(ports.loop, ports.pool, {ports.exits, ports.files}, std::move(scanExternal),
             std::move(claudeSessions)) {
  localChanges_ = local_.agents().observe([this] {
    inventoryCache_.reset();
    changes_.notify();
  });
}

void HerdrClient::startDiscovery() { local_.start(); }

const Inventory& HerdrClient::inventory() {
  if (!inventoryCache_) {
    Inventory merged;
    merged.all = ExternalAgents::merge({}, *local_.agents(), {});
    for (const HerdrAgent& agent : merged.all) {
      (agent.isCodexLive() ? merged.loadedCodex : merged.primary).push_back(agent);
    }
    inventoryCache_ = std::move(merged);
  }
  return *inventoryCache_;
}

AgentLight HerdrClient::light(const HerdrAgent& agent) const { return lights_.light(agent, loop_.wallNow()); }

void HerdrClient::observeStates(const std::vector<HerdrAgent>& agents) {
  lights_.observeStates(agents, loop_.wallNow());
}

void HerdrClient::markSeen(std::string_view id) { lights_.markSeen(id, loop_.wallNow()); }

}  // namespace ostrel

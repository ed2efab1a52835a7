// The hub of the core: owns the sources of agents and what is known of them, and gives the one merged list.
// Main thread only. State and steps live in the classes that own the concern; this one only brings them
// together.
#pragma once

#include <optional>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Client/AgentLights.h"
#include "Client/LocalDiscovery.h"
#include "Runtime/Published.h"

namespace ostrel {

// The merged list, by use. `primary` and `loadedCodex` partition `all`, order kept.
struct Inventory {
  std::vector<HerdrAgent> all;
  std::vector<HerdrAgent> primary;      // what the interface shows as agents
  std::vector<HerdrAgent> loadedCodex;  // Codex threads that are loaded and linked to no agent
  bool operator==(const Inventory&) const = default;
};

class HerdrClient {
 public:
  struct Ports {
    MainLoop& loop;
    BackgroundPool& pool;
    ProcessExits& exits;
    FileWatcher& files;
  };
  // `scanExternal` finds the agents outside Herdr; replaceable, so that the logic runs against prepared
  // input.
  HerdrClient(Ports ports, LocalDiscovery::Scan scanExternal, std::filesystem::path claudeSessions);

  // Starts every source; does nothing when started before.
  void startDiscovery();

  // The merged list, sorted by id. Merged when first asked for after a source changed.
  const Inventory& inventory();

  AgentLight light(const HerdrAgent& agent) const;
  // To be called with what was shown whenever the inventory changed, before lights are computed.
  void observeStates(const std::vector<HerdrAgent>& agents);
  // The person has looked at the agent.
  void markSeen(std::string_view id);

  LocalDiscovery& local() { return local_; }
  // Fires when anything that is published here has changed.
  ChangeSignal& changes() { return changes_; }

 private:
  MainLoop& loop_;
  AgentLights lights_;
  LocalDiscovery local_;
  std::optional<Inventory> inventoryCache_;
  ChangeSignal changes_;
  Subscription localChanges_;
};

}  // namespace ostrel

// The hub of the core: owns the sources of agents and what is known of them, and gives the one merged list.
// Main thread only. State and steps live in the classes that own the concern; this one only brings them
// together.
#pragma once

#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/AgentList.h"
#include "Claude/ClaudePermissionServer.h"
#include "Claude/HookFollower.h"
#include "Client/AgentInventory.h"
#include "Client/AgentSelection.h"
#include "Client/CodexDiscovery.h"
#include "Client/CodexRolloutLights.h"
#include "Client/HerdrLink.h"
#include "Client/IntegrationSetup.h"
#include "Client/LitAgents.h"
#include "Client/LocalDiscovery.h"
#include "Client/ManagedServer.h"
#include "Client/OpenRequests.h"
#include "Client/SelectedAgent.h"
#include "Codex/CodexRequestController.h"
#include "Runtime/Published.h"

namespace ostrel {

class HerdrClient {
 public:
  struct Ports {
    MainLoop& loop;
    BackgroundPool& pool;
    ProcessExits& exits;
    FileWatcher& files;
    Preferences& preferences;
    ServerLauncher& servers;
  };
  struct Sources {
    // Finds the agents outside Herdr; replaceable, so that the logic runs against prepared input.
    LocalDiscovery::Scan scanExternal;
    std::filesystem::path claudeSessions;
    HerdrLink::Doors herdr;
    std::map<std::string, std::string> toolEnvironment;  // for programs that are started to stay
    decltype(SelectedAgent::Doors::loadHistory) loadHistory{};
    decltype(SelectedAgent::Doors::readPane) readPane{};
    // What a Codex without an app server does, by its conversation's file, and the folder of these; none:
    // only a scan tells.
    decltype(CodexRolloutLights::Sources::look) lookAtRollout{};
    std::filesystem::path codexSessions{};
    // The app server's socket, and what follows its loaded conversations; none: Codex is not asked.
    std::string codexServer{};
    CodexDiscovery::Follow followCodex{};
    // The app server's socket, for its requests to the person; empty: they are left to the terminal.
    std::string codexSocket{};
    // Where Claude Code's hooks find us; empty: they are left to the terminal.
    std::string permissionSocket{};
    // Starts and stops what takes their prompts, as the person wants it; null: they are taken.
    HookFollower* hook = nullptr;
    // Opens the links that requests ask the person to follow; null where no browser can be reached.
    UrlOpener* urls = nullptr;
    bool fixture = false;  // a run that leaves the person's agents alone
  };
  HerdrClient(Ports ports, Sources sources);

  // At launch: starts every source, and the link with Herdr where it was wanted last. Nothing in a fixture
  // run.
  void restoreConnection();
  // Starts the sources that need no wish; does nothing when started before.
  void startDiscovery();

  // Attaches to the Herdr sessions that run. The selection is dropped.
  void connect();
  // Makes sure of a session first, by a server of the product's own if need be.
  void connectManaged();
  // `forget`: not at the next launch either.
  void disconnect(bool forget);

  const Inventory& inventory() { return inventory_.merged(); }

  // The person has looked at the agent.
  void markSeen(std::string_view id);
  // Gives the agent a title of the person's own; an empty one takes it back.
  void rename(const HerdrAgent& agent, std::string_view title);
  // Ties the agent to a transcript that the person chose; nothing unties it. False for an agent that can't be
  // tied. What the agent reports itself always counts more.
  bool linkConversation(const HerdrAgent& agent, const std::optional<std::string>& path);
  // The label above the agent's conversation.
  std::string statusLabel(const HerdrAgent& agent);

  // Opens an agent: what there is of it is shown by `selected`.
  void select(const HerdrAgent& agent, bool markSeen);

  // Before the program ends: waiting hooks are let go, the wish to reconnect is kept.
  void stop();

  // All of Herdr's agents, of this machine and of saved ones.
  std::vector<HerdrAgent> managedAgents() const;
  bool hasManagedConnection() const;

  LocalDiscovery& local() { return local_; }
  HerdrLink& link() { return link_; }
  IntegrationSetup& integrations() { return integrations_; }
  ManagedServer& managedServer() { return managed_; }
  // Whether every source that runs has told what it knows at least once.
  bool complete();
  // The inventory with its lights, as every face shows it.
  LitAgents& lit() { return lit_; }
  AgentSelection& selection() { return selection_; }
  // What agents ask, and the only way to answer.
  OpenRequests& requests() { return requests_; }
  SelectedAgent& selected() { return selected_; }
  ClaudePermissionServer& permissions() { return permissions_; }
  // How Claude Code's hook stands; null where nobody puts it in.
  const ClaudeHookState* hook() const { return hook_ ? &*hook_->state() : nullptr; }
  CodexRequestController& codexRequests() { return codexRequests_; }
  CodexDiscovery& codexDiscovery() { return codexDiscovery_; }
  bool asksCodex() const { return asksCodex_; }
  // Loaded Codex threads and agents of saved machines, for those who list them.
  Published<std::vector<HerdrAgent>>& codexAgents() { return codexAgents_; }
  Published<std::vector<HerdrAgent>>& remoteAgents() { return remoteAgents_; }
  Published<std::set<std::string>>& connectedMachines() { return connectedMachines_; }  // ids

  // Something that a view may show has changed. Views go through a `Throttle`.
  ChangeSignal& changes() { return changes_; }

 private:
  template <class T>
  void tell(Published<T>& value) {
    subscriptions_.push_back(value.observe([this] { changes_.notify(); }));
  }
  void preferencesChanged();
  // Ends requests that were answered in the terminal.
  void reconcilePermissions();
  void merge(AgentInventory::Source source, Published<std::vector<HerdrAgent>>& agents);
  Task<void> ensureAndConnect();
  std::optional<HerdrAgent> current(const std::string& id);

  MainLoop& loop_;
  Preferences& preferences_;
  const bool fixture_;
  ChangeSignal changes_;
  LocalDiscovery local_;
  CodexRolloutLights rolloutLights_;
  HerdrLink link_;
  IntegrationSetup integrations_;
  ManagedServer managed_;
  Published<std::vector<HerdrAgent>> codexAgents_;
  CodexRequestController codexRequests_;
  const std::string codexSocket_;
  const bool asksCodex_;
  BackgroundPool codexPool_{1};  // an app server that does not answer holds nobody else up
  CodexDiscovery codexDiscovery_;
  Published<std::vector<HerdrAgent>> remoteAgents_;
  Published<std::set<std::string>> connectedMachines_;
  ClaudePermissionServer permissions_;
  HookFollower* const hook_;
  AgentInventory inventory_;
  LitAgents lit_;
  OpenRequests requests_;
  SelectedAgent selected_;
  AgentSelection selection_;
  std::vector<Subscription> subscriptions_;
  TaskScope tasks_;
};

}  // namespace ostrel

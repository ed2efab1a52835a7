// The owner of everything that knows of agents: makes the sources and what is built on them, joins them, and
// hands each face the narrow interfaces that it needs. Main thread only. State and steps live in the classes
// that own the concern: a new one adds a class here and a line.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/HookFollower.h"
#include "Client/AgentInventory.h"
#include "Client/ClientActions.h"
#include "Client/CodexDiscovery.h"
#include "Client/CodexRolloutLights.h"
#include "Client/HerdrConnection.h"
#include "Client/HerdrLink.h"
#include "Client/IntegrationSetup.h"
#include "Client/LitAgents.h"
#include "Client/LocalDiscovery.h"
#include "Client/ManagedServer.h"
#include "Client/OpenAgent.h"
#include "Client/OpenRequests.h"
#include "Client/SourceReports.h"
#include "Codex/CodexRequestController.h"
#include "Runtime/Published.h"

namespace ostrel {

class HerdrClient final : private LitAgents::Round {
 public:
  struct Ports {
    MainLoop& loop;
    Background& pool;
    ProcessExits& exits;
    FileWatcher& files;
    Preferences& preferences;
    ServerLauncher& servers;
    HerdrPort& herdr;
    Background& commands;  // for those of Herdr alone
  };
  // What is absent is left alone.
  struct Sources {
    // Finds the agents outside Herdr; replaceable, so that the logic runs against prepared input.
    LocalDiscovery::Scan scanExternal;
    std::filesystem::path claudeSessions;
    std::map<std::string, std::string> toolEnvironment{};  // for programs that are started to stay
    TranscriptSource* transcripts = nullptr;               // null: the agent that is open shows nothing
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
  // Before the program ends: waiting hooks are let go, the wish to reconnect is kept.
  void stop();

  // The agents with their lights.
  LitAgents& agents() { return lit_; }
  // What can be done to them.
  AgentActions& actions() { return actions_; }
  // The one that is open.
  ConversationSource& open() { return open_; }
  // What agents ask, and the only way to answer.
  RequestSource& requests() { return requests_; }
  // Herdr: how it stands, and what can be done about it.
  HerdrConnection& herdr() { return herdr_; }
  // What could not be done, and whether everything has been heard of.
  const Published<SourceReport>& report() const { return reports_.report(); }

 private:
  void reconcileRequests() override;
  bool complete() override { return reports_.complete(); }
  void merge(AgentInventory::Source source, Published<std::vector<HerdrAgent>>& agents);
  void follow();

  MainLoop& loop_;
  Preferences& preferences_;
  const bool fixture_;
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
  SourceReports reports_;
  AgentInventory inventory_;
  LitAgents lit_;
  OpenRequests requests_;
  OpenAgent open_;
  ClientActions actions_;
  HerdrConnection herdr_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

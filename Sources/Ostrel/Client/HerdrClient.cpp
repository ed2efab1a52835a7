#include "Client/HerdrClient.h"

#include <algorithm>
#include <utility>

#include "Client/AgentLabels.h"
#include "Client/ConversationLinks.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

HerdrClient::HerdrClient(Ports ports, Sources sources)
    : loop_(ports.loop),
      preferences_(ports.preferences),
      fixture_(sources.fixture),
      local_(ports.loop, ports.pool, {ports.exits, ports.files}, std::move(sources.scanExternal),
             std::move(sources.claudeSessions)),
      rolloutLights_(ports.loop, ports.pool,
                     {ports.files, std::move(sources.lookAtRollout), std::move(sources.codexSessions),
                      [this] { local_.rescan(); }},
                     local_.agents()),
      link_(ports.loop, ports.preferences, std::move(sources.herdr)),
      integrations_(ports.loop, link_.cli(), [this] { return link_.resolveExecutable(); }),
      managed_(link_.cli(), ports.preferences,
               {.executable = [this] { return link_.resolveExecutable(); },
                .chosenSession = [this] { return std::string(text::trim(*link_.sessionName())); },
                .connecting = [this] { return *link_.connecting(); },
                .environment = std::move(sources.toolEnvironment),
                .launcher = ports.servers,
                .fixture = sources.fixture}),
      codexRequests_(ports.loop),
      codexSocket_(std::move(sources.codexSocket)),
      asksCodex_(static_cast<bool>(sources.followCodex)),
      codexDiscovery_(ports.loop, codexPool_,
                      {ports.files, std::move(sources.codexServer), std::move(sources.followCodex)},
                      codexAgents_,
                      [this](const std::set<std::string>& threads) { codexRequests_.watch(threads); }),
      permissions_(ports.loop, std::move(sources.permissionSocket)),
      hook_(sources.hook),
      inventory_(ports.preferences),
      lit_(ports.loop, {.inventory = [this]() -> const Inventory& { return inventory(); },
                        .reconcileRequests = [this] { reconcilePermissions(); },
                        .complete = [this] { return complete(); }}),
      requests_(ports.loop, ports.pool,
                {.claude = permissions_,
                 .codex = codexRequests_,
                 .inventory = [this]() -> const Inventory& { return inventory(); },
                 .preferences = ports.preferences,
                 .asksCodex = asksCodex_,
                 .urls = sources.urls},
                [this] { changes_.notify(); }),
      selected_(ports.loop, ports.preferences, link_,
                {.loadHistory = std::move(sources.loadHistory),
                 .readPane = std::move(sources.readPane),
                 .current = [this](const std::string& id) { return current(id); }}),
      selection_({[this]() -> const Inventory& { return inventory(); }, link_.agents(), codexAgents_,
                  ports.preferences},
                 {.selected =
                      [this](const HerdrAgent& agent, bool seen) {
                        if (seen) markSeen(agent.id());
                        if (!fixture_) selected_.open(agent);
                      },
                  .cleared = [this] { selected_.close(); },
                  .refreshed = [this](const HerdrAgent& agent) { selected_.refreshHistory(agent); }}),
      tasks_(ports.loop) {
  using Source = AgentInventory::Source;
  merge(Source::herdr, link_.agents());
  merge(Source::external, rolloutLights_.agents());
  merge(Source::codex, codexAgents_);
  merge(Source::remote, remoteAgents_);
  tell(local_.error());
  tell(link_.active());
  tell(link_.connecting());
  tell(link_.connected());
  tell(link_.error());
  tell(link_.sessionCount());
  tell(link_.inventoryComplete());
  tell(integrations_.integrations());
  tell(integrations_.busy());
  tell(integrations_.message());
  tell(managed_.starting());
  tell(connectedMachines_);
  tell(selection_.selectedID());
  for (Subscription& each : selected_.shown().observe([this] { changes_.notify(); }))
    subscriptions_.push_back(std::move(each));
  tell(permissions_.requests());
  tell(permissions_.taken());
  subscriptions_.push_back(permissions_.forms().observe([this] {
    inventory_.formsChanged(*permissions_.forms());
    changes_.notify();
  }));
  if (hook_) tell(hook_->state());
  tell(codexRequests_.requests());
  tell(codexRequests_.sent());
  tell(codexRequests_.connectedThreads());
  tell(codexRequests_.error());
  tell(codexRequests_.replyErrors());
  tell(codexDiscovery_.error());
  subscriptions_.push_back(codexRequests_.detailsChanged().observe([this] { changes_.notify(); }));
  subscriptions_.push_back(changes_.observe([this] { lit_.changed(); }));
  subscriptions_.push_back(local_.scans().observe([this] {
    selection_.reconcile();
    reconcilePermissions();
    lit_.roundEnded();
  }));
  subscriptions_.push_back(link_.steps().observe([this] { selection_.herdrChanged(); }));
  subscriptions_.push_back(codexDiscovery_.passes().observe([this] {
    selection_.reconcile();
    lit_.roundEnded();
  }));
  subscriptions_.push_back(remoteAgents_.observe([this] { selection_.reconcile(); }));
  link_.onConnect = [this] { integrations_.check(); };
}

void HerdrClient::merge(AgentInventory::Source source, Published<std::vector<HerdrAgent>>& agents) {
  subscriptions_.push_back(agents.observe([this, source, &agents] {
    inventory_.changed(source, *agents);
    changes_.notify();
  }));
}

void HerdrClient::restoreConnection() {
  if (fixture_) return;
  startDiscovery();
  link_.readSettings();
  if (!preferences_.boolean("herdrReconnect")) return;
  if (preferences_.boolean("herdrManagedServer")) {
    connectManaged();
  } else {
    connect();
  }
}

void HerdrClient::startDiscovery() {
  hook_ ? hook_->start(permissions_) : permissions_.start();
  if (!codexSocket_.empty()) codexRequests_.start(codexSocket_);
  if (asksCodex_) codexDiscovery_.start();
  local_.start();
}

void HerdrClient::connect() {
  selection_.clear();
  link_.connect();
}

void HerdrClient::connectManaged() {
  if (!*managed_.starting()) tasks_.start(ensureAndConnect());
}

Task<void> HerdrClient::ensureAndConnect() {
  try {
    co_await managed_.ensureSession(true);
    connect();
  } catch (const Failure& failure) {
    link_.error().set(failure.message());
  }
}

void HerdrClient::disconnect(bool forget) {
  selection_.clear();
  selected_.close(true);
  link_.disconnect(forget);
}

void HerdrClient::stop() {
  codexRequests_.stop();
  permissions_.stop();
  disconnect(false);
}

void HerdrClient::select(const HerdrAgent& agent, bool markSeen) {
  selection_.select(selection_.opening(agent), markSeen);
}

// Herdr's agents as their own source has them: the merged list may show another record of the conversation.
std::optional<HerdrAgent> HerdrClient::current(const std::string& id) {
  for (const auto* const list : {&*link_.agents(), &*remoteAgents_}) {
    for (const HerdrAgent& agent : *list) {
      if (agent.id() == id) return agent;
    }
  }
  for (const auto& listed : inventory().all.entries()) {
    if (listed->id == id) return listed->agent;
  }
  return std::nullopt;
}

void HerdrClient::reconcilePermissions() {
  using Seen = ClaudePermissionServer::SeenState;
  permissions_.reconcilePermissions([this](std::string_view session) -> std::optional<Seen> {
    const std::string conversation = text::lowercase(session);
    for (const auto& listed : inventory().all.entries()) {
      if (listed->conversation != conversation) continue;
      // The row's state is that of all who have the conversation open, processes behind a pane too.
      const bool scanned =
          listed->agent.isExternal() || std::ranges::any_of(*local_.agents(), [&](const HerdrAgent& agent) {
            return linkedConversation(agent, preferences_) == conversation;
          });
      const auto state = inventory_.reportedState(conversation).value_or(listed->agent.state);
      return Seen{std::string(state), scanned ? local_.scannedAt() : loop_.now()};
    }
    return std::nullopt;
  });
}

bool HerdrClient::complete() {
  return *local_.scans() > 0 && !*link_.connecting() && !*managed_.starting() &&
         (!asksCodex_ || *codexDiscovery_.passes() > 0);
}

void HerdrClient::markSeen(std::string_view id) { lit_.markSeen(id); }

void HerdrClient::rename(const HerdrAgent& agent, std::string_view title) {
  const std::string key = "agentTitle." + agent.id();
  const std::string_view trimmed = text::trim(title);
  if (trimmed.empty()) {
    preferences_.remove(key);
  } else {
    preferences_.set(key, trimmed);
  }
  preferencesChanged();
}

bool HerdrClient::linkConversation(const HerdrAgent& agent, const std::optional<std::string>& path) {
  // A thread that stands for a terminal: the link is the terminal's.
  const auto key = manualLinkKey(inventory_.terminalOf(agent).value_or(agent));
  if (!key) return false;
  if (path) {
    preferences_.set(*key, *path);
  } else {
    preferences_.remove(*key);
  }
  preferencesChanged();
  if (*selection_.selectedID() == agent.id()) selected_.open(agent);
  return true;
}

std::string HerdrClient::statusLabel(const HerdrAgent& agent) {
  const bool open = *selection_.selectedID() == agent.id();
  const bool connected =
      agent.isRemote() ? connectedMachines_->contains(agent.machine->id) : *link_.connected();
  return agentLabels::statusLabel(agent, {.connected = connected,
                                          .reconnecting = *link_.active() && !connected,
                                          .recentlyActive = agent.recentlyActive(loop_.wallNow()),
                                          .output = open ? std::string_view(*selected_.shown().output) : ""});
}

void HerdrClient::preferencesChanged() {
  inventory_.preferencesChanged();
  changes_.notify();
}

std::vector<HerdrAgent> HerdrClient::managedAgents() const {
  std::vector<HerdrAgent> all = *link_.agents();
  all.insert(all.end(), remoteAgents_->begin(), remoteAgents_->end());
  return all;
}

bool HerdrClient::hasManagedConnection() const { return *link_.connected() || !connectedMachines_->empty(); }

}  // namespace ostrel

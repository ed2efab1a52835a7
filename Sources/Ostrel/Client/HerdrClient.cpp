#include "Client/HerdrClient.h"

#include <algorithm>
#include <utility>

#include "Client/ConversationLinks.h"
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
      link_(ports.loop, ports.preferences, ports.herdr, ports.commands),
      integrations_(ports.loop, link_),
      managed_(link_, ports.preferences,
               {ports.servers, std::move(sources.toolEnvironment), sources.fixture}),
      codexRequests_(ports.loop),
      codexSocket_(std::move(sources.codexSocket)),
      asksCodex_(static_cast<bool>(sources.followCodex)),
      codexDiscovery_(ports.loop, codexPool_,
                      {ports.files, std::move(sources.codexServer), std::move(sources.followCodex)},
                      codexAgents_,
                      [this](const std::set<std::string>& threads) { codexRequests_.watch(threads); }),
      permissions_(ports.loop, std::move(sources.permissionSocket)),
      hook_(sources.hook),
      reports_({local_, link_, managed_, asksCodex_ ? &codexDiscovery_ : nullptr, codexRequests_,
                permissions_, hook_}),
      inventory_(ports.preferences),
      lit_(ports.loop, inventory_, *this),
      requests_(ports.loop, ports.pool,
                {.claude = permissions_,
                 .codex = codexRequests_,
                 .inventory = inventory_,
                 .preferences = ports.preferences,
                 .asksCodex = asksCodex_,
                 .urls = sources.urls}),
      open_(ports.loop, {.inventory = inventory_,
                         .lit = lit_,
                         .link = link_,
                         .codex = codexAgents_,
                         .machines = connectedMachines_,
                         .preferences = ports.preferences,
                         .transcripts = sources.fixture ? nullptr : sources.transcripts}),
      actions_({inventory_, open_, ports.preferences},
               [this] {
                 inventory_.preferencesChanged();
                 lit_.changed();
               }),
      herdr_(ports.loop, {link_, managed_, integrations_, open_, ports.preferences}) {
  follow();
}

// Who has to hear of what, beyond what each class follows by itself.
void HerdrClient::follow() {
  using Source = AgentInventory::Source;
  merge(Source::herdr, link_.agents());
  merge(Source::external, rolloutLights_.agents());
  merge(Source::codex, codexAgents_);
  merge(Source::remote, remoteAgents_);
  const auto then = [this](auto& value, auto work) {
    subscriptions_.push_back(value.observe(std::move(work)));
  };
  then(permissions_.forms(), [this] {
    inventory_.formsChanged(*permissions_.forms());
    lit_.changed();
  });
  then(local_.scans(), [this] {
    open_.reconcile();
    reconcileRequests();
    lit_.roundEnded();
  });
  then(codexDiscovery_.passes(), [this] {
    open_.reconcile();
    lit_.roundEnded();
  });
  then(link_.steps(), [this] { open_.herdrChanged(); });
  then(remoteAgents_, [this] { open_.reconcile(); });
  // Whether the list is whole is part of a delivery.
  then(reports_.report(), [this] { lit_.roundEnded(); });
}

void HerdrClient::merge(AgentInventory::Source source, Published<std::vector<HerdrAgent>>& agents) {
  subscriptions_.push_back(agents.observe([this, source, &agents] {
    inventory_.changed(source, *agents);
    lit_.changed();
  }));
}

void HerdrClient::restoreConnection() {
  if (fixture_) return;
  startDiscovery();
  herdr_.restore();
}

void HerdrClient::startDiscovery() {
  hook_ ? hook_->start(permissions_) : permissions_.start();
  if (!codexSocket_.empty()) codexRequests_.start(codexSocket_);
  if (asksCodex_) codexDiscovery_.start();
  local_.start();
}

void HerdrClient::stop() {
  codexRequests_.stop();
  permissions_.stop();
  herdr_.disconnect(false);
}

void HerdrClient::reconcileRequests() {
  using Seen = ClaudePermissionServer::SeenState;
  permissions_.reconcilePermissions([this](std::string_view session) -> std::optional<Seen> {
    const std::string conversation = text::lowercase(session);
    for (const auto& listed : inventory_.merged().all.entries()) {
      if (listed->conversation != conversation) continue;
      // The row's state is that of all who have the conversation open, processes behind a pane too.
      const bool scanned =
          listed->agent.isExternal() || std::ranges::any_of(*local_.agents(), [&](const HerdrAgent& agent) {
            return linkedConversation(agent, preferences_) == conversation;
          });
      const auto state = inventory_.reportedState(conversation).value_or(listed->agent.state);
      return Seen{state, scanned ? local_.scannedAt() : loop_.now()};
    }
    return std::nullopt;
  });
}

}  // namespace ostrel

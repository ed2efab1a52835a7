#include "App/ConnectionsPage.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace ostrel {

namespace {

using Button = ConnectionRow::Button;

ConnectionRow ofProvider(const char* id, const char* name, std::optional<ConnectionState> state) {
  ConnectionRow row{.id = id, .title = name, .state = "Checking…", .note = {}, .buttons = {}};
  if (!state) return row;
  switch (*state) {
    case ConnectionState::checking:
      break;
    case ConnectionState::missing:
      row.state = "Not installed";
      row.buttons = {{ConnectionAction::connect, "Setup guide"}};
      break;
    case ConnectionState::disconnected:
      row.state = "Not signed in";
      row.light = AgentLight::needsYou;
      row.buttons = {{ConnectionAction::connect, "Connect"}};
      break;
    case ConnectionState::otherAccount:
      row.state = "Signed in with another account";
      row.light = AgentLight::done;
      row.buttons = {{ConnectionAction::connect, "Use subscription"}};
      break;
    case ConnectionState::subscription:
      row.state = "Signed in with a subscription";
      row.light = AgentLight::done;
      break;
  }
  return row;
}

ConnectionRow ofHerdr(const ConnectionFacts& all) {
  const HerdrFacts& facts = all.herdr;
  ConnectionRow row{.id = "herdr", .title = "Herdr", .state = facts.status, .note = {}, .buttons = {}};
  row.note = facts.error.value_or("");
  if (facts.starting) {
    row.state = "Starting a session…";
    row.light = AgentLight::working;
    return row;
  }
  if (facts.connected) {
    row.light = AgentLight::done;
  } else if (facts.connecting) {
    row.light = AgentLight::working;
  } else if (facts.error) {
    row.light = AgentLight::needsYou;
  }
  if (facts.active) {
    row.buttons = {{ConnectionAction::disconnect, "Disconnect"}};
    if (!facts.connected && !facts.connecting)
      row.buttons.push_back({ConnectionAction::startSession, "Start a session"});
  } else if (all.program) {
    row.buttons = {{ConnectionAction::connect, "Connect"}};
  } else if (!all.programKnown) {
    row.state = "Checking…";
  } else {
    row.state = "Not found";
    if (row.note.empty()) row.note = "Herdr was not found. Install it or choose its executable below.";
  }
  return row;
}

ConnectionRow ofIntegrations(const HerdrFacts& facts) {
  ConnectionRow row{.id = "integrations", .title = "Integrations", .state = {}, .note = {}, .buttons = {}};
  row.note = facts.integrationMessage.value_or("");
  if (facts.integrationsBusy) {
    row.state = "Checking…";
    row.light = AgentLight::working;
    return row;
  }
  row.buttons = {{ConnectionAction::check, "Check"}};
  if (!facts.recommended.empty()) {
    row.state = fmt::format("Worth installing: {}", fmt::join(facts.recommended, ", "));
    row.light = AgentLight::needsYou;
    row.buttons.push_back({ConnectionAction::install, "Install"});
  } else if (facts.integrations.empty()) {
    row.state = "Not checked";
  } else {
    const auto current = std::ranges::count_if(facts.integrations, &HerdrIntegration::isCurrent);
    row.state = current > 0 ? fmt::format("{} up to date", current) : "None needed";
    row.light = current > 0 ? AgentLight::done : AgentLight::idle;
  }
  return row;
}

}  // namespace

std::vector<ConnectionRow> connections::rows(const ConnectionFacts& facts) {
  const auto state = [&](AgentProvider provider) {
    const auto found = facts.providers.find(provider);
    return found == facts.providers.end() ? std::nullopt : std::optional(found->second);
  };
  std::vector<ConnectionRow> rows{ofProvider("codex", "Codex", state(AgentProvider::codex)),
                                  ofProvider("claude", "Claude Code", state(AgentProvider::claude)),
                                  ofHerdr(facts)};
  if (facts.program) rows.push_back(ofIntegrations(facts.herdr));
  return rows;
}

Connections::Connections(ProviderConnections& providers, HerdrConnection& herdr)
    : providers_(providers), herdr_(herdr) {
  const auto tell = [this] { changed_.notify(); };
  subscriptions_.push_back(providers.connections.observe(tell));
  subscriptions_.push_back(providers.herdr.observe(tell));
  subscriptions_.push_back(herdr.observe(tell));
}

ConnectionFacts Connections::facts() {
  providers_.lookForHerdr(herdr_.executable());
  return {.providers = *providers_.connections,
          .program = providers_.herdr->executable,
          .programKnown = providers_.herdr->known,
          .herdr = herdr_.facts()};
}

void Connections::choose(std::string_view id, ConnectionAction action) {
  if (id == "codex") providers_.connect(AgentProvider::codex);
  if (id == "claude") providers_.connect(AgentProvider::claude);
  if (id != "herdr" && id != "integrations") return;
  switch (action) {
    case ConnectionAction::connect:
      return herdr_.connect();
    case ConnectionAction::disconnect:
      return herdr_.disconnect(true);
    case ConnectionAction::startSession:
      return herdr_.startSession();
    case ConnectionAction::install:
      return herdr_.installRecommended();
    case ConnectionAction::check:
      return herdr_.checkIntegrations();
  }
}

}  // namespace ostrel

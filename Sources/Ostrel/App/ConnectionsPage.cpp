#include "App/ConnectionsPage.h"

#include <algorithm>
#include <memory>
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

ConnectionRow ofHerdr(const ConnectionFacts& facts) {
  ConnectionRow row{.id = "herdr", .title = "Herdr", .state = facts.linkStatus, .note = {}, .buttons = {}};
  row.note = facts.linkError.value_or("");
  if (facts.starting) {
    row.state = "Starting a session…";
    row.light = AgentLight::working;
    return row;
  }
  if (facts.connected) {
    row.light = AgentLight::done;
  } else if (facts.connecting) {
    row.light = AgentLight::working;
  } else if (facts.linkError) {
    row.light = AgentLight::needsYou;
  }
  if (facts.active) {
    row.buttons = {{ConnectionAction::disconnect, "Disconnect"}};
    if (!facts.connected && !facts.connecting)
      row.buttons.push_back({ConnectionAction::startSession, "Start a session"});
  } else if (facts.herdr) {
    row.buttons = {{ConnectionAction::connect, "Connect"}};
  } else if (!facts.herdrKnown) {
    row.state = "Checking…";
  } else {
    row.state = "Not found";
    if (row.note.empty()) row.note = "Herdr was not found. Install it or choose its executable below.";
  }
  return row;
}

ConnectionRow ofIntegrations(const ConnectionFacts& facts) {
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
  if (facts.herdr) rows.push_back(ofIntegrations(facts));
  return rows;
}

ConnectionsSource ConnectionsSource::of(ProviderConnections& providers, HerdrClient& client,
                                        Preferences& preferences) {
  ConnectionsSource source;
  source.facts = [&] {
    HerdrLink& link = client.link();
    IntegrationSetup& setup = client.integrations();
    providers.lookForHerdr(*link.executablePath());
    return ConnectionFacts{.providers = *providers.connections,
                           .herdr = providers.herdr->executable,
                           .herdrKnown = providers.herdr->known,
                           .linkStatus = link.status(),
                           .linkError = *link.error(),
                           .active = *link.active(),
                           .connecting = *link.connecting(),
                           .connected = *link.connected(),
                           .starting = *client.managedServer().starting(),
                           .integrations = *setup.integrations(),
                           .recommended = setup.recommended(*link.agents()),
                           .integrationsBusy = *setup.busy(),
                           .integrationMessage = *setup.message()};
  };
  source.choose = [&](std::string_view id, ConnectionAction action) {
    if (id == "codex") providers.connect(AgentProvider::codex);
    if (id == "claude") providers.connect(AgentProvider::claude);
    if (id != "herdr" && id != "integrations") return;
    switch (action) {
      case ConnectionAction::connect:
        client.connect();
        break;
      case ConnectionAction::disconnect:
        client.disconnect(true);
        break;
      case ConnectionAction::startSession:
        preferences.set("herdrManagedServer", true);
        client.connectManaged();
        break;
      case ConnectionAction::install:
        client.integrations().install(client.integrations().recommended(*client.link().agents()));
        break;
      case ConnectionAction::check:
        client.integrations().check();
        break;
    }
  };
  source.observe = [&](ChangeSignal::Observer observer) {
    const auto shared = std::make_shared<ChangeSignal::Observer>(std::move(observer));
    return Registration([first = providers.connections.observe([shared] { (*shared)(); }),
                         second = providers.herdr.observe([shared] { (*shared)(); })] {});
  };
  source.executable = [&] { return *client.link().executablePath(); };
  source.session = [&] { return *client.link().sessionName(); };
  source.setExecutable = [&](std::string path) { client.link().executablePath().set(std::move(path)); };
  source.setSession = [&](std::string name) { client.link().sessionName().set(std::move(name)); };
  return source;
}

}  // namespace ostrel

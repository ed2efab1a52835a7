// What the page of connections says: the sign-ins of the two providers, the link with Herdr and Herdr's
// integrations, each with what can be done about it. Pure functions over what the owners of the concerns
// know; `ConnectionsSource` joins the page to them. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "App/ProviderConnections.h"
#include "Client/HerdrClient.h"

namespace ostrel {

struct ConnectionFacts {
  std::map<AgentProvider, ConnectionState> providers{};
  std::optional<std::filesystem::path> herdr{};  // its executable
  bool herdrKnown = true;                        // false: it is being looked for
  std::string linkStatus{};                      // "Connected · 2 sessions"
  std::optional<std::string> linkError{};
  bool active = false;  // a link is wanted
  bool connecting = false;
  bool connected = false;
  bool starting = false;  // a session of the product's own
  std::vector<HerdrIntegration> integrations{};
  std::vector<std::string> recommended{};
  bool integrationsBusy = false;
  std::optional<std::string> integrationMessage{};
};

enum class ConnectionAction { connect, disconnect, startSession, install, check };

struct ConnectionRow {
  struct Button {
    ConnectionAction action;
    std::string title;
    bool operator==(const Button&) const = default;
  };
  std::string id;  // "codex", "claude", "herdr", "integrations"
  std::string title;
  std::string state;  // in a line
  std::string note;   // further words; often empty
  AgentLight light = AgentLight::idle;
  std::vector<Button> buttons;  // at most two, the likelier one last
  bool operator==(const ConnectionRow&) const = default;
};

namespace connections {

// From top to bottom. Herdr's integrations are there once Herdr is.
std::vector<ConnectionRow> rows(const ConnectionFacts& facts);

}  // namespace connections

// Where the page gets its facts from, and who does what its buttons say.
struct ConnectionsSource {
  std::function<ConnectionFacts()> facts;
  // Does nothing for a row that is not there.
  std::function<void(std::string_view id, ConnectionAction action)> choose;
  // Subscribes to changes that the model does not tell of.
  std::function<Subscription(ChangeSignal::Observer)> observe;
  // Herdr's executable (empty: search) and session (empty: all), in force from the next connection on.
  std::function<std::string()> executable;
  std::function<std::string()> session;
  std::function<void(std::string)> setExecutable;
  std::function<void(std::string)> setSession;

  // All of them must outlive the source. Starting a session counts as the wish to have one of the product's
  // own from then on.
  static ConnectionsSource of(ProviderConnections& providers, HerdrClient& client, Preferences& preferences);
};

}  // namespace ostrel

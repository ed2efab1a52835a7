// What the page of connections says: the sign-ins of the two providers, the link with Herdr and Herdr's
// integrations, each with what can be done about it. Pure functions over what the owners of the concerns
// know; a `ConnectionsSource` joins the page to them. Main thread only.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "App/ProviderConnections.h"
#include "Client/HerdrConnection.h"

namespace ostrel {

struct ConnectionFacts {
  std::map<AgentProvider, ConnectionState> providers{};
  std::optional<std::filesystem::path> program{};  // Herdr's executable
  bool programKnown = true;                        // false: it is being looked for
  HerdrFacts herdr{};
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

// Where the page gets its facts from, and who does what its buttons say. `Connections` is the program's,
// pictures make up their own.
class ConnectionsSource {
 public:
  ConnectionsSource() = default;
  ConnectionsSource(const ConnectionsSource&) = delete;
  ConnectionsSource& operator=(const ConnectionsSource&) = delete;
  virtual ~ConnectionsSource() = default;

  // Somebody looks at them: what is out of date is looked for anew, and told.
  virtual ConnectionFacts facts() = 0;
  // Does nothing for a row that is not there.
  virtual void choose(std::string_view id, ConnectionAction action) = 0;
  // Called when the facts may have changed.
  virtual Subscription observe(ChangeSignal::Observer observer) = 0;
  // Herdr's executable (empty: search) and session (empty: all), in force from the next connection on.
  virtual std::string executable() const = 0;
  virtual std::string session() const = 0;
  virtual void setExecutable(std::string path) = 0;
  virtual void setSession(std::string name) = 0;
};

class Connections final : public ConnectionsSource {
 public:
  // Both outlive this.
  Connections(ProviderConnections& providers, HerdrConnection& herdr);

  ConnectionFacts facts() override;
  void choose(std::string_view id, ConnectionAction action) override;
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed_.observe(std::move(observer));
  }
  std::string executable() const override { return herdr_.executable(); }
  std::string session() const override { return herdr_.session(); }
  void setExecutable(std::string path) override { herdr_.setExecutable(std::move(path)); }
  void setSession(std::string name) override { herdr_.setSession(std::move(name)); }

 private:
  ProviderConnections& providers_;
  HerdrConnection& herdr_;
  ChangeSignal changed_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

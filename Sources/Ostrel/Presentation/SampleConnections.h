// Made-up connections, for a look at their page without any. Main thread only.
#pragma once

#include <string>
#include <string_view>

#include "App/ConnectionsPage.h"

namespace ostrel {

class SampleConnections final : public ConnectionsSource {
 public:
  // Of a person who has everything, or nothing.
  explicit SampleConnections(bool some) {
    if (!some) {
      facts_ = {.providers = {{AgentProvider::codex, ConnectionState::missing},
                              {AgentProvider::claude, ConnectionState::checking}},
                .herdr = {.status = "Not connected"}};
      return;
    }
    facts_ = {.providers = {{AgentProvider::codex, ConnectionState::subscription},
                            {AgentProvider::claude, ConnectionState::disconnected}},
              .program = "/home/mira/.local/bin/herdr",
              .herdr = {.status = "Connected · 2 sessions",
                        .active = true,
                        .connected = true,
                        .integrations = {{"claude", "outdated (1.0)"}, {"codex", "current (1.2)"}},
                        .recommended = {"claude"}}};
  }
  ConnectionFacts facts() override { return facts_; }
  void choose(std::string_view, ConnectionAction) override {}
  Subscription observe(ChangeSignal::Observer) override { return {}; }
  std::string executable() const override { return {}; }
  std::string session() const override { return {}; }
  void setExecutable(std::string) override {}
  void setSession(std::string) override {}

 private:
  ConnectionFacts facts_;
};

}  // namespace ostrel

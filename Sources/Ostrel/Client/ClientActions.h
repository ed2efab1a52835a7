// `AgentActions` of the program: the rules of what can be done to the agents of the inventory. Main thread
// only.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Client/AgentActions.h"
#include "Client/AgentInventory.h"
#include "Client/OpenAgent.h"
#include "Platform/Preferences.h"

namespace ostrel {

class ClientActions final : public AgentActions {
 public:
  struct Parts {
    AgentInventory& inventory;
    OpenAgent& open;
    Preferences& preferences;
  };
  // `changed` is called after a title or a link was set or taken back.
  ClientActions(Parts parts, std::function<void()> changed) : parts_(parts), changed_(std::move(changed)) {}

  std::optional<std::string> refusal(AgentAction action, std::string_view id) override;
  void open(std::string_view id, bool markSeen) override;
  void close() override { parts_.open.close(); }
  void rename(std::string_view id, std::string_view title) override;
  void link(std::string_view id, const std::string& path) override;
  void unlink(std::string_view id) override;

 private:
  // The agent; throws its refusal.
  const HerdrAgent& allowed(AgentAction action, std::string_view id);
  std::optional<std::string> linkKey(const HerdrAgent& agent);
  void linkChanged(const HerdrAgent& agent);

  Parts parts_;
  const std::function<void()> changed_;
};

}  // namespace ostrel

// A made-up conversation beside the made-up agents of `SampleAgents`, and what can be done there: looking.
// Main thread only.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Client/AgentActions.h"
#include "Client/ConversationSource.h"
#include "Platform/Preferences.h"
#include "SampleAgents.h"
#include "SampleRequests.h"

namespace ostrel {

class SampleConversation final : public ConversationSource, public AgentActions {
 public:
  // All of them outlive this. Titles of the person's own go to the preferences.
  SampleConversation(const SampleAgents& agents, SampleRequests& requests, Preferences& preferences)
      : agents_(agents), requests_(requests), preferences_(preferences) {}

  // Opens an agent: a conversation with a bit of everything, or for a pane its terminal too.
  void show(const HerdrAgent& agent);
  SelectedConversation& content() { return shown_; }

  std::optional<HerdrAgent> agent() const override { return agent_; }
  const SelectedConversation& shown() const override { return shown_; }
  std::string statusLabel(const HerdrAgent& agent) const override;
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed_.observe(std::move(observer));
  }

  // No file is theirs: nothing can be linked.
  std::optional<std::string> refusal(AgentAction action, std::string_view id) override;
  void open(std::string_view id, bool markSeen) override;
  void close() override;
  void rename(std::string_view id, std::string_view title) override;
  void link(std::string_view id, const std::string& path) override;
  void unlink(std::string_view id) override;

 private:
  void refuse(AgentAction action, std::string_view id);

  const SampleAgents& agents_;
  SampleRequests& requests_;
  Preferences& preferences_;
  SelectedConversation shown_;
  std::optional<HerdrAgent> agent_;
  ChangeSignal changed_;
};

}  // namespace ostrel

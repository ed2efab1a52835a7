// The agent that the person has open: which one it is (`AgentSelection`), and what is shown of it
// (`SelectedAgent`). Main thread only.
#pragma once

#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Client/AgentInventory.h"
#include "Client/AgentSelection.h"
#include "Client/ConversationSource.h"
#include "Client/HerdrLink.h"
#include "Client/LitAgents.h"
#include "Client/SelectedAgent.h"
#include "Conversations/AgentTranscriptReader.h"
#include "Platform/Preferences.h"

namespace ostrel {

class OpenAgent final : public ConversationSource, private AgentSelection::Listener {
 public:
  struct Parts {
    AgentInventory& inventory;
    LitAgents& lit;  // says who is how, and is told who was seen
    HerdrLink& link;
    const Published<std::vector<HerdrAgent>>& codex;   // loaded threads
    const Published<std::set<std::string>>& machines;  // ids of those that are connected
    const Preferences& preferences;
    TranscriptSource* transcripts;  // null: nothing is read, and what is open shows nothing
  };
  OpenAgent(MainLoop& loop, Parts parts);

  std::optional<HerdrAgent> agent() const override;
  const SelectedConversation& shown() const override { return content_.shown(); }
  std::string statusLabel(const HerdrAgent& agent) const override;
  Subscription observe(ChangeSignal::Observer observer) override {
    return changed_.observe(std::move(observer));
  }

  void open(const HerdrAgent& agent, bool markSeen);
  // `forget` drops what is remembered of other agents too.
  void close(bool forget = false);
  // A conversation's file was tied to the agent, or is not any more.
  void linkChanged(const HerdrAgent& agent);

  // A source other than Herdr has told its agents.
  void reconcile() { selection_.reconcile(); }
  // Herdr has.
  void herdrChanged() { selection_.herdrChanged(); }

 private:
  void selected(const HerdrAgent& agent, bool markSeen) override;
  void cleared() override { content_.close(); }
  void refreshed(const HerdrAgent& agent) override { content_.refreshHistory(agent); }
  // Tells only where the label is another one than before: the terminal's text may change it.
  void outputChanged();

  Parts parts_;
  ChangeSignal changed_;
  SelectedAgent content_;
  AgentSelection selection_;
  std::string label_;  // as it was told last
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

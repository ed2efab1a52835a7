// Which conversation an agent is tied to: by its own report, or by a file that the person chose for it.
// Main thread only.
#pragma once

#include <optional>
#include <string>

#include "Agents/HerdrAgent.h"
#include "Platform/Preferences.h"

namespace ostrel {

// A transcript reference and its kind, "path" or "id".
struct ConversationLink {
  std::string reference;
  std::optional<std::string> kind;
  bool operator==(const ConversationLink&) const = default;
};

// The preference that holds a chosen transcript. Nothing for a pane without a terminal: a link would outlive
// what it was made for.
std::optional<std::string> manualLinkKey(const HerdrAgent& agent);

// What the agent reports, else what was chosen for it.
std::optional<ConversationLink> linkedReference(const HerdrAgent& agent, const Preferences& preferences);

// The canonical conversation id of `linkedReference`.
std::optional<std::string> linkedConversation(const HerdrAgent& agent, const Preferences& preferences);

// Names what a cache of conversations holds: changes with the agent, its terminal and its link.
std::string historyKey(const HerdrAgent& agent, const Preferences& preferences);

}  // namespace ostrel

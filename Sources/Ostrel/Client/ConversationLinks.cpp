#include "Client/ConversationLinks.h"

#include "Conversations/AgentTranscript.h"

namespace ostrel {

std::optional<std::string> manualLinkKey(const HerdrAgent& agent) {
  if (agent.isExternal() && !agent.isCodexLive()) return "transcriptLink." + agent.id();
  if (!agent.terminalID) return std::nullopt;
  return "transcriptLink." + agent.id() + "." + *agent.terminalID;
}

std::optional<ConversationLink> linkedReference(const HerdrAgent& agent, const Preferences& preferences) {
  if (agent.transcriptReference) return ConversationLink{*agent.transcriptReference, agent.transcriptKind};
  const auto key = manualLinkKey(agent);
  auto chosen = key ? preferences.string(*key) : std::nullopt;
  if (!chosen) return std::nullopt;
  return ConversationLink{std::move(*chosen), "path"};
}

std::optional<std::string> linkedConversation(const HerdrAgent& agent, const Preferences& preferences) {
  const auto link = linkedReference(agent, preferences);
  return link ? conversationID(link->reference) : std::nullopt;
}

std::string historyKey(const HerdrAgent& agent, const Preferences& preferences) {
  constexpr char kSeparator = '\x1F';
  const auto link = linkedReference(agent, preferences).value_or(ConversationLink{});
  return agent.id() + kSeparator + agent.terminalID.value_or("") + kSeparator + link.kind.value_or("") +
         kSeparator + link.reference;
}

}  // namespace ostrel

// What a face needs of the agent that the person has open. `OpenAgent` is the program's, pictures and tests
// make up their own. Main thread only.
#pragma once

#include <optional>
#include <string>

#include "Agents/HerdrAgent.h"
#include "Client/SelectedConversation.h"
#include "Runtime/Published.h"

namespace ostrel {

class ConversationSource {
 public:
  ConversationSource() = default;
  ConversationSource(const ConversationSource&) = delete;
  ConversationSource& operator=(const ConversationSource&) = delete;
  virtual ~ConversationSource() = default;

  // The agent that is open, as the inventory has it now; nothing where none is, or once it has gone.
  virtual std::optional<HerdrAgent> agent() const = 0;
  // What was said in its conversation and what stands in its terminal. Each of its values tells its changes.
  virtual const SelectedConversation& shown() const = 0;
  // The label above the conversation of an agent: "Working", "Needs your answer".
  virtual std::string statusLabel(const HerdrAgent& agent) const = 0;
  // Called when another agent is open, and when its label may have changed for a reason other than the
  // agent's own record, whose changes are told by `LitSource`.
  virtual Subscription observe(ChangeSignal::Observer observer) = 0;
};

}  // namespace ostrel

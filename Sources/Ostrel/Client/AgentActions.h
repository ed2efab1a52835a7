// What a person can do to an agent, each thing once: windows, `serve` and commands call these and nothing
// else, so that all of them have the same rules and the same words of refusal. Main thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ostrel {

enum class AgentAction : std::uint8_t {
  open,    // its conversation and its terminal
  rename,  // a title of the person's own
  link,    // ties it to a conversation's file
  unlink,
};

// `ClientActions` is the program's, pictures make up their own.
class AgentActions {
 public:
  AgentActions() = default;
  AgentActions(const AgentActions&) = delete;
  AgentActions& operator=(const AgentActions&) = delete;
  virtual ~AgentActions() = default;

  // Why `action` can't be done to the agent now, in words for the person; nothing where it can. Faces offer
  // what this does not refuse, and the functions below throw exactly these words as a `Failure`, with nothing
  // done. `id` is that of the agent's record.
  virtual std::optional<std::string> refusal(AgentAction action, std::string_view id) = 0;

  // Opens the agent: what there is of it is shown by `ConversationSource`. With `markSeen` the person counts
  // as having seen it.
  virtual void open(std::string_view id, bool markSeen) = 0;
  // Nothing is open any more. Never refused.
  virtual void close() = 0;
  // An empty title takes the person's own back.
  virtual void rename(std::string_view id, std::string_view title) = 0;
  // Ties the agent to the file at `path`, absolute. What the agent tells itself always counts more.
  virtual void link(std::string_view id, const std::string& path) = 0;
  virtual void unlink(std::string_view id) = 0;
};

}  // namespace ostrel

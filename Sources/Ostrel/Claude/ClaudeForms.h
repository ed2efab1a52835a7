// Which Claude Code sessions show their person a form that a server of tools asked for. Such a form stands in
// the terminal alone, and the session's own state says that it works.
//
// Claude Code's notifications tell: one when nobody has touched the form for six seconds, one when it is
// settled. Versions before the second existed leave a form open here until their session rests.
//
// Main thread only. `ClaudePermissionServer` owns it and hands over the hooks' lines.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Agents/AgentState.h"
#include "Runtime/MainLoop.h"
#include "Runtime/Published.h"

namespace ostrel {

// How an agent was seen.
struct SeenState {
  AgentState state = AgentState::unknown;
  TimePoint at;  // what happened later, whoever looked may not have seen
};
// Of the agent that has this conversation id (in lower case), as its own session tells; nothing where there
// is none.
using StateOfConversation = std::function<std::optional<SeenState>(std::string_view conversation)>;

class ClaudeForms {
 public:
  // More are not remembered: any local program could make them up. Longer ids neither (bytes).
  static constexpr std::size_t kMost = 256;
  static constexpr std::size_t kLongestId = 256;
  // A form in a session that no agent has is forgotten after so long: the session has ended.
  static constexpr Duration kUnknown = std::chrono::seconds(30);

  // A line of the hook that is no permission request.
  void take(std::string_view line, TimePoint now);
  // Forgets the forms of sessions that have gone or no longer work, as somebody saw who looked `lag` or more
  // after the form was told.
  void reconcile(const StateOfConversation& stateOf, TimePoint now, Duration lag);
  void clear();

  // Conversation ids, in lower case.
  Published<std::set<std::string>>& open() { return open_; }

 private:
  void publish();

  std::map<std::string, TimePoint> told_;  // by conversation id
  Published<std::set<std::string>> open_;
};

}  // namespace ostrel

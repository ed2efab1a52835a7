// The loaded conversations as a connection's notifications tell of them: no socket, no clock. Used by
// `CodexLive::follow`, on its thread.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Runtime/Json.h"

namespace ostrel {

class CodexThreads {
 public:
  // A message that is no response to a call. `now` is when an agent's state counts as changed.
  void event(std::string bytes, WallTime now);
  // A thread as the server has it, or that it has gone.
  void read(const std::string& id, const std::optional<Json>& thread, WallTime now);

  std::set<std::string> known() const;
  // These have gone.
  void forget(const std::set<std::string>& ids);

  // Threads of which no more than the id is known: to be read. Each is told once.
  std::set<std::string> takeUnread() { return std::exchange(unread_, {}); }
  // Whether the list differs from that at the last call.
  bool takeChanged() { return std::exchange(changed_, false); }

  // Sorted by id. `since` is set for those whose state has changed before our eyes.
  std::vector<HerdrAgent> agents() const;

 private:
  void put(HerdrAgent agent, WallTime now);
  void statusChanged(const std::string& id, const Json& status, WallTime now);
  void gone(const std::string& id);

  std::map<std::string, HerdrAgent> threads_;  // by id
  std::set<std::string> passedOver_;           // loaded, but not shown by themselves
  std::set<std::string> unread_;
  bool changed_ = false;
};

}  // namespace ostrel

// The files in which Claude Code says what each of its running sessions does: "<pid>.json" in the folder
// "sessions" of its own folder (as Claude Code 2.1 writes them).
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/AgentState.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

struct ClaudeSession {
  std::string id;                          // the conversation's, as it stands in the file
  AgentState state = AgentState::unknown;  // unknown when the file tells no status
  std::optional<WallTime> since;           // when it entered the state
  bool operator==(const ClaudeSession&) const = default;
};

// A process as its session file names it.
struct ClaudeProcess {
  std::int64_t pid = 0;
  WallTime started;
  std::optional<std::uint64_t> startTicks{};  // since boot, where the kernel told it
};

// What the bytes of a session file say of `process`. Nothing when they are no session of that very process: a
// file outlives a killed process, whose pid may be another's by now.
std::optional<ClaudeSession> parseClaudeSession(std::string_view bytes, const ClaudeProcess& process);

class ClaudeSessions {
 public:
  explicit ClaudeSessions(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // Reads the process's file; nothing when there is none that fits. `innerPids` tells the pids by which the
  // process may know itself, in namespaces within ours; it is asked where no file has the pid that we know.
  // Blocks; any thread.
  std::optional<ClaudeSession> session(const ClaudeProcess& process,
                                       const std::function<std::vector<std::int32_t>()>& innerPids) const;

 private:
  std::optional<ClaudeSession> read(const ClaudeProcess& process) const;

  std::filesystem::path folder_;
};

}  // namespace ostrel

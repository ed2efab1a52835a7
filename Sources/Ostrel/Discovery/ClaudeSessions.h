// The files in which Claude Code says what each of its running sessions does: "<pid>.json" in the folder
// "sessions" of its own folder (as Claude Code 2.1 writes them).
#pragma once

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Runtime/MainLoop.h"

namespace ostrel {

struct ClaudeSession {
  std::string id;                 // the conversation's, as it stands in the file
  std::string state;              // "blocked", "working", "idle"; "unknown" when the file tells no status
  std::optional<WallTime> since;  // when it entered the state
  bool operator==(const ClaudeSession&) const = default;
};

// What the bytes of a session file say of the process `pid` that started at `started`. Nothing when they are
// no session of that very process: a file outlives a killed process, whose pid may be another's by now.
std::optional<ClaudeSession> parseClaudeSession(std::string_view bytes, std::int64_t pid, WallTime started);

class ClaudeSessions {
 public:
  explicit ClaudeSessions(std::filesystem::path folder) : folder_(std::move(folder)) {}

  // Reads the process's file; nothing when there is none that fits. Blocks; any thread.
  std::optional<ClaudeSession> session(std::int64_t pid, WallTime started) const;

 private:
  std::filesystem::path folder_;
};

}  // namespace ostrel

// What a Codex without an app server does, read from the file that it writes of its conversation: the lines
// "task_started", "task_complete" and "turn_aborted" tell it to the moment.
//
// What it asks a person stands in no line, but it asks only when it has called a tool. A call that has had no
// answer for a minute may wait for its terminal: then the turn counts as "unknown", not as working. (A
// command that runs for longer gives its output so far in pieces.)
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Agents/AgentState.h"
#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

struct CodexTurn {
  AgentState state = AgentState::unknown;  // "working" or "idle" once a line tells
  std::optional<WallTime> since;           // when it entered the state
  bool operator==(const CodexTurn&) const = default;
};

// The file's bytes in pieces, cut anywhere. Pure.
class CodexRolloutParser {
 public:
  // `whole`: the first byte begins a line; otherwise what stands before the first newline is passed over.
  explicit CodexRolloutParser(bool whole = true) : skipping_(!whole) {}
  void feed(std::string_view bytes);
  const CodexTurn& turn() const { return turn_; }
  // A tool that the turn has called has not answered.
  bool awaitsTool() const { return !calls_.empty(); }

 private:
  void line(std::string_view line);
  void toolCalled(const std::string& type, const Json& payload);

  CodexTurn turn_;
  std::set<std::string> calls_;
  std::string pending_;
  bool skipping_;
};

// Reads such files: the end of one at the first look, then what is appended. Any thread; blocks.
class CodexRollouts {
 public:
  // What the conversation in `path` does; nothing when the file can't be read. `mayAsk`: it has a terminal in
  // which it can ask; what was said last counts where nothing is said.
  std::optional<CodexTurn> look(const std::filesystem::path& path, std::optional<bool> mayAsk = {});

 private:
  struct Entry {
    std::uint64_t inode = 0;
    std::uint64_t read = 0;  // bytes of the file taken in
    CodexRolloutParser parser;
    bool mayAsk = false;
    std::uint64_t used = 0;  // the number of its last look
  };
  static bool readFirst(Entry& entry, const std::filesystem::path& path, std::uint64_t size);

  std::mutex lock_;
  std::map<std::string, Entry> entries_;  // by path
  std::uint64_t looks_ = 0;
};

}  // namespace ostrel

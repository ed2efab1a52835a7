// What a Codex without an app server does, read from the file that it writes of its conversation: the lines
// "task_started", "task_complete" and "turn_aborted" tell it to the moment.
//
// What it asks a person stands in no line. A turn in which nothing has been written for a minute while the
// process used no processor time either may wait for its terminal: it counts as "unknown", not as working.
#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Runtime/MainLoop.h"

namespace ostrel {

struct CodexTurn {
  std::string state = "unknown";  // "working", "idle"; "unknown" until a line tells
  std::optional<WallTime> since;  // when it entered the state
  bool operator==(const CodexTurn&) const = default;
};

// The file's bytes in pieces, cut anywhere. Pure.
class CodexRolloutParser {
 public:
  // `whole`: the first byte begins a line; otherwise what stands before the first newline is passed over.
  explicit CodexRolloutParser(bool whole = true) : skipping_(!whole) {}
  void feed(std::string_view bytes);
  const CodexTurn& turn() const { return turn_; }

 private:
  void line(std::string_view line);

  CodexTurn turn_;
  std::string pending_;
  bool skipping_;
};

// Reads such files: the end of one at the first look, then what is appended. Any thread; blocks.
class CodexRollouts {
 public:
  // What the conversation in `path` does; nothing when the file can't be read. `processorTime` is what its
  // process has used so far, in any unit, where the caller knows it.
  std::optional<CodexTurn> look(const std::filesystem::path& path,
                                std::optional<std::uint64_t> processorTime = {});

 private:
  struct Entry {
    std::uint64_t inode = 0;
    std::uint64_t read = 0;  // bytes of the file taken in
    CodexRolloutParser parser;
    std::optional<std::uint64_t> processorTime;
    bool resting = false;  // its process used none between two looks that told
    std::uint64_t used = 0;
  };
  static bool readFirst(Entry& entry, const std::filesystem::path& path, std::uint64_t size);

  std::mutex lock_;
  std::map<std::string, Entry> entries_;  // by path
  std::uint64_t looks_ = 0;
};

}  // namespace ostrel

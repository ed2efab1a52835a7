// The process table of one scan, whether it came as the kernel's rows or as text, with each process made into
// a record only when it is asked for. Used by `ExternalAgents` within one scan.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Platform/Processes.h"

namespace ostrel {

class ScanTable {
 public:
  struct Entry {
    ExternalProcess process;
    std::optional<std::int64_t> startSeconds;  // since 1970, where the kernel told it
    std::optional<std::uint64_t> startTicks;   // since boot, likewise
  };

  // `processes` outlives the table.
  ScanTable(Processes& processes, std::vector<ProcessRow> rows);
  ScanTable(Processes& processes, std::string_view text);

  // A living process of any user; nothing for zombies.
  const Entry* find(std::int64_t pid);
  // The same, of this program's own user only.
  const Entry* findOwn(std::int64_t pid);

  // The own user's processes that have the name of an agent, in the table's order.
  //
  // Rows are chosen by the kernel's name alone, and only those chosen are made into records, whose command
  // decides. That loses nothing: a command is either the kernel's name or a path whose last component equals
  // it. The one exception, a program inside a bundle's ".app/Contents/MacOS/" that has taken another name
  // than its file's, is left out.
  std::vector<std::int64_t> candidates();

  // How many processes are the own user's. Costs a system call a row.
  std::size_t ownCount();

  // Whether a name, as the kernel has it, may be that of an agent.
  static bool mayBeAgent(std::string_view name);

 private:
  std::optional<Entry> entryOf(const ProcessRow& row);

  Processes& processes_;
  const std::int64_t ownUid_;
  std::vector<ProcessRow> rows_;                                 // empty for a text
  std::vector<std::int64_t> order_;                              // pids of a text
  std::unordered_map<std::int64_t, std::optional<Entry>> made_;  // all of a text, of rows those asked for
};

}  // namespace ostrel

// The copy of the program that runs, for one that a person has just started again: where the two are alike,
// the running one shows itself and the new one ends. They meet at a Unix socket in the program's data folder.
//
// One line each way, JSON: {"show": identity}, then {"shown": true} or {"shown": false}. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>

#include "Platform/Environment.h"
#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class RunningCopy {
 public:
  // Two copies are alike when these are equal: the executable (its path, and the file itself, which an update
  // replaces), the version, the display. Blocks.
  static Json identity(const std::filesystem::path& executable, const std::string& version,
                       const Environment& environment);
  static std::filesystem::path socketPath(const Environment& environment);

  // A copy that has not answered by then is replaced like one of another version.
  static constexpr Duration kPatience = std::chrono::seconds(1);
  static constexpr std::size_t kLongestLine = 16'384;  // bytes
  static constexpr std::size_t kMostAsking = 8;        // at once

  // Asks the copy that listens at `path` to show itself; false where there is none, where it is not alike or
  // another user's, and where it does not answer. Blocks for `kPatience` at most.
  static bool ask(const std::filesystem::path& path, const Json& identity);

  RunningCopy(MainLoop& loop, std::filesystem::path path, Json identity, std::function<void()> show);
  RunningCopy(const RunningCopy&) = delete;
  RunningCopy& operator=(const RunningCopy&) = delete;

  // Listens, in the place of an earlier copy. Where that is not possible, a second start replaces this copy.
  // The file stays at the end: whoever comes next takes its place.
  void start();

 private:
  struct Asking {
    UniqueFd fd;
    std::string bytes;
    Watch watch;
    Timer deadline;
  };
  void accept();
  void read(int key);
  void answer(const Asking& asking, std::string_view line);

  MainLoop& loop_;
  const std::filesystem::path path_;
  const Json identity_;
  const std::function<void()> show_;
  UniqueFd listener_;
  Watch watch_;
  std::map<int, Asking> asking_;
  int next_ = 0;
};

}  // namespace ostrel

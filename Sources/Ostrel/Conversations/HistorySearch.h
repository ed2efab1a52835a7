// Finds a conversation's file below the history folders by its id, and remembers in vain searches.
//
// A fresh session has no file until its first prompt, and every scan asks for it again. A search that found
// nothing is therefore kept together with the modification times of all the folders that it saw: a file can't
// appear in a folder without changing its time. Thread-safe; searches of several threads run side by side.
// Used by `AgentTranscript`.
#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Runtime/MainLoop.h"

namespace ostrel {

class HistorySearch {
 public:
  // What a file must be called.
  struct Names {
    std::string whole;   // its name
    std::string ending;  // or, where not empty, how its name ends
  };

  // Paths of the files below `folders` with such a name, two at most: more are as good as two. Hidden files
  // and folders are passed over, folders that can't be read too, and symbolic links to folders are not
  // followed.
  std::vector<std::string> find(const std::vector<std::string>& folders, const Names& names, TimePoint now);

  // A search in vain is believed no longer than this, for file systems that keep no folder times.
  static constexpr Duration kBelieved = std::chrono::seconds(30);

 private:
  struct Folder {
    std::string path;
    std::int64_t modified = 0;  // nanoseconds since 1970; kAbsent, or kUnsettled when it can't be relied on
    bool operator==(const Folder&) const = default;
  };
  using Folders = std::vector<Folder>;
  struct Miss {
    std::shared_ptr<const Folders> folders;  // shared by the misses of one state of the history
    TimePoint at;
  };
  static constexpr std::int64_t kAbsent = -1;
  static constexpr std::int64_t kUnsettled = -2;

  static bool unchanged(const Folders& folders);
  static std::vector<std::string> walk(const std::vector<std::string>& roots, const Names& names,
                                       Folders& seen);

  std::mutex lock_;
  std::map<std::string, Miss> misses_;
};

}  // namespace ostrel

// A change of one file that an agent wants to make, as it is shown before it is allowed. Values and pure
// functions; any thread.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ostrel {

struct FileChange {
  std::string path;
  std::string kind;  // "add", "update", "delete" or another word of the agent's; may be empty
  // Of an "add" or a "delete" the file's bare content; of all others lines with a sign in their first column,
  // as `diff -u` writes them, and "@@" lines where some are left out. No file header.
  std::string diff;
  bool operator==(const FileChange&) const = default;
};

// What becomes of the lines of a fragment of a file, with three unchanged ones around each change; empty
// where nothing changes. A fragment's place in its file is not known, so that "@@" lines have no numbers.
// Above `kLongestDiff` lines that differ, all of them go and come as one block: working out which ones stay
// costs the square of their number.
inline constexpr std::size_t kLongestDiff = 2000;
std::string fragmentDiff(std::string_view before, std::string_view after);
// All lines of `content` as ones that come.
std::string addedLines(std::string_view content);

}  // namespace ostrel

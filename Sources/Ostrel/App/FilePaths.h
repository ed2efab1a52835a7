// Paths of files that stand in a text, so that a view can make links of them. Pure functions, any thread.
#pragma once

#include <cstddef>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

struct FilePath {
  std::size_t begin = 0;   // in bytes
  std::size_t length = 0;  // with a line number behind it
  std::string path;        // without one
  bool operator==(const FilePath&) const = default;
};

// What looks like a path: "/a/b", "~/a", "./a", and with a folder and a file extension "a/b.c"; a line and a
// column may follow ("a/b.c:12:3"). Nobody has looked whether there is such a file.
std::vector<FilePath> filePaths(std::string_view text);

// Where it leads: what is relative belongs to `folder`. Empty where that is no path.
std::filesystem::path resolvePath(std::string_view path, const std::filesystem::path& folder,
                                  const std::filesystem::path& home);

}  // namespace ostrel

// Small reads below a folder laid out like /proc, relative to a descriptor of it. Used by `NativeProcesses`.
#pragma once

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>

namespace ostrel {

// "<pid>", or "<pid>/<name>" for a name of at most 16 bytes, for the system calls that take a folder's
// descriptor.
class ProcessPath {
 public:
  explicit ProcessPath(std::int32_t pid, std::string_view name = {}) {
    char* end = std::to_chars(path_.data(), path_.data() + 12, pid).ptr;
    if (!name.empty()) *end++ = '/';
    *std::ranges::copy(name.substr(0, 16), end).out = '\0';
  }
  const char* c_str() const { return path_.data(); }

 private:
  std::array<char, 32> path_;
};

// The first `limit` bytes of a file; what was read until an error.
std::string readProcFile(int folder, const char* path, std::size_t limit);

// The target of a symbolic link, raw; empty where it can't be read. When the file that the kernel's link
// means has no name any more, `deleted` is set and the kernel's " (deleted)" is left out.
struct ProcLink {
  std::string target;
  bool deleted = false;
};
ProcLink readProcLink(int folder, const char* path);

}  // namespace ostrel

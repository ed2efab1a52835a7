// Small file operations that the core shares. All of them block: call them in background work.
#pragma once

#include <cstdint>
#include <expected>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Runtime/MainLoop.h"

namespace ostrel::files {

// What one `stat` tells.
struct Status {
  std::uint64_t size = 0;  // bytes
  WallTime modified{};
  std::uint64_t inode = 0;
  std::uint64_t device = 0;
  bool directory = false;
  bool operator==(const Status&) const = default;
};
// Follows symbolic links; nothing when the file can't be looked at.
std::optional<Status> status(const std::filesystem::path& path);

// A regular file that this user may execute.
bool isExecutable(const std::filesystem::path& path);

// The whole file, at most `limit` bytes; otherwise the error number (EFBIG when it is longer).
std::expected<std::string, int> read(const std::filesystem::path& path, std::size_t limit = 64u << 20);

// Makes `folder` and what is missing above it, each with mode 0700. Throws `Failure`.
void makeFolders(const std::filesystem::path& folder);

// Replaces the file whole or not at all: a temporary file beside it, fsync, rename, fsync of the folder. The
// old file stays as it was on every failure (a full or read-only disk among them). Missing folders are
// created with mode 0700. Throws `Failure` with the user's words.
void replace(const std::filesystem::path& path, std::string_view bytes, unsigned mode = 0600);

}  // namespace ostrel::files

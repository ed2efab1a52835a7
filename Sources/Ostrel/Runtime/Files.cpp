#include "Runtime/Files.h"

#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel::files {

namespace {

namespace fs = std::filesystem;

WallTime wallTime(const timespec& time) {
  return WallTime(std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec));
}

// The error number, or 0.
int writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::write(fd, bytes.data(), bytes.size());
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? errno : EIO;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return ::fsync(fd) == 0 ? 0 : errno;
}

}  // namespace

bool isExecutable(const fs::path& path) {
  struct stat info{};
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

std::optional<Status> status(const fs::path& path) {
  struct stat info;
  if (::stat(path.c_str(), &info) != 0) return std::nullopt;
  return Status{static_cast<std::uint64_t>(info.st_size), wallTime(info.st_mtim), info.st_ino, info.st_dev,
                S_ISDIR(info.st_mode)};
}

std::expected<std::string, int> read(const fs::path& path, std::size_t limit) {
  // Nonblocking, so that a named pipe put in a file's place can't hang the reader.
  UniqueFd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
  if (!fd) return std::unexpected(errno);
  struct stat info;
  if (::fstat(fd.get(), &info) != 0) return std::unexpected(errno);
  if (S_ISDIR(info.st_mode)) return std::unexpected(EISDIR);
  if (!S_ISREG(info.st_mode)) return std::unexpected(EINVAL);
  std::string bytes;
  std::size_t length = 0;
  std::size_t room = static_cast<std::size_t>(info.st_size) + 1;
  for (;;) {
    if (length > limit || room > limit + 1) return std::unexpected(EFBIG);
    bytes.resize(room);
    const ssize_t count = ::read(fd.get(), bytes.data() + length, room - length);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return std::unexpected(errno);
    if (count == 0) break;
    length += static_cast<std::size_t>(count);
    if (length == room) room = std::min(room * 2 + 4096, std::max(limit, length) + 1);
  }
  if (length > limit) return std::unexpected(EFBIG);
  bytes.resize(length);
  return bytes;
}

void makeFolders(const fs::path& folder) {
  if (folder.empty() || ::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return;
  if (errno == ENOENT && folder.has_parent_path() && folder.parent_path() != folder) {
    makeFolders(folder.parent_path());
    if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST) return;
  }
  throw Failure::ofErrno(fmt::format("Could not make the folder {}", folder.string()), errno);
}

void replace(const fs::path& path, std::string_view bytes, unsigned mode) {
  // A link stays a link: what it points to is replaced.
  std::error_code error;
  const fs::path target = fs::is_symlink(path, error) ? fs::weakly_canonical(path, error) : path;
  const fs::path& file = error || target.empty() ? path : target;
  const auto failure = [&](int number) {
    return Failure::ofErrno(fmt::format("Could not write {}", path.string()), number);
  };

  makeFolders(file.parent_path());
  std::string temporary = file.string() + ".XXXXXX";
  UniqueFd fd(::mkostemp(temporary.data(), O_CLOEXEC));
  if (!fd) throw failure(errno);
  int problem = ::fchmod(fd.get(), mode) == 0 ? 0 : errno;
  if (problem == 0) problem = writeAll(fd.get(), bytes);
  if (problem == 0 && ::close(fd.release()) != 0) problem = errno;
  if (problem == 0 && ::rename(temporary.c_str(), file.c_str()) != 0) problem = errno;
  if (problem != 0) {
    ::unlink(temporary.c_str());
    throw failure(problem);
  }
  // The new name survives a power cut only once the folder is on disk; where that can't be done the file
  // still stands.
  UniqueFd folder(::open(file.parent_path().c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folder) ::fsync(folder.get());
}

}  // namespace ostrel::files

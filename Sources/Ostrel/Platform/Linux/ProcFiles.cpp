#include "Platform/Linux/ProcFiles.h"

#include <cerrno>
#include <climits>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Runtime/UniqueFd.h"

namespace ostrel {

std::string readProcFile(int folder, const char* path, std::size_t limit) {
  std::string bytes;
  const UniqueFd file(::openat(folder, path, O_RDONLY | O_CLOEXEC));
  if (!file) return bytes;
  std::array<char, 8192> chunk;
  while (bytes.size() < limit) {
    const ssize_t count = ::read(file.get(), chunk.data(), std::min(chunk.size(), limit - bytes.size()));
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    bytes.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return bytes;
}

ProcLink readProcLink(int folder, const char* path) {
  constexpr std::string_view kMark = " (deleted)";
  std::array<char, PATH_MAX> target;
  const ssize_t length = ::readlinkat(folder, path, target.data(), target.size());
  if (length <= 0) return {};
  ProcLink link{{target.data(), static_cast<std::size_t>(length)}};
  if (link.target.ends_with(kMark)) {
    // A file may really be named so; then it still has a name.
    struct stat status{};
    link.deleted = ::fstatat(folder, path, &status, 0) != 0 || status.st_nlink == 0;
    if (link.deleted) link.target.resize(link.target.size() - kMark.size());
  }
  return link;
}

}  // namespace ostrel

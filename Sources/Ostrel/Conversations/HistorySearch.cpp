#include "Conversations/HistorySearch.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <time.h>
#include <utility>

#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

enum class Kind { folder, file, other };

Kind kindOf(int folder, const dirent& entry, bool named) {
  switch (entry.d_type) {
    case DT_DIR:
      return Kind::folder;
    case DT_REG:
      return Kind::file;
    case DT_LNK:
    case DT_UNKNOWN:
      break;
    default:
      return Kind::other;
  }
  // A link is followed for the sake of a file only, and only where its name is the one searched for.
  struct stat info;
  const bool link = entry.d_type == DT_LNK;
  if ((link && !named) || ::fstatat(folder, entry.d_name, &info, link ? 0 : AT_SYMLINK_NOFOLLOW) != 0)
    return Kind::other;
  if (S_ISLNK(info.st_mode) && named && ::fstatat(folder, entry.d_name, &info, 0) == 0 &&
      S_ISREG(info.st_mode))
    return Kind::file;
  if (S_ISREG(info.st_mode)) return Kind::file;
  return S_ISDIR(info.st_mode) && !link ? Kind::folder : Kind::other;
}

}  // namespace

std::vector<std::string> HistorySearch::find(const std::vector<std::string>& folders, const Names& names,
                                             TimePoint now) {
  std::string key = names.whole;
  for (const auto& folder : folders) key.append(1, '\0').append(folder);
  std::shared_ptr<const Folders> known;
  {
    const std::lock_guard guard(lock_);
    const auto miss = misses_.find(key);
    if (miss != misses_.end() && now - miss->second.at < kBelieved) known = miss->second.folders;
  }
  if (known && unchanged(*known)) return {};

  Folders seen;
  auto found = walk(folders, names, seen);
  const std::lock_guard guard(lock_);
  misses_.erase(key);
  if (!found.empty()) return found;
  known.reset();
  for (const auto& [other, miss] : misses_)
    if (*miss.folders == seen) known = miss.folders;
  if (!known) known = std::make_shared<const Folders>(std::move(seen));
  constexpr std::size_t kMisses = 40;
  if (misses_.size() >= kMisses) misses_.clear();
  misses_.emplace(std::move(key), Miss{std::move(known), now});
  return {};
}

bool HistorySearch::unchanged(const Folders& folders) {
  for (const Folder& folder : folders) {
    if (folder.modified == kUnsettled) return false;
    struct stat info;
    const bool there = ::stat(folder.path.c_str(), &info) == 0;
    if ((there ? nanoseconds(info.st_mtim) : kAbsent) != folder.modified) return false;
  }
  return true;
}

std::vector<std::string> HistorySearch::walk(const std::vector<std::string>& roots, const Names& names,
                                             Folders& seen) {
  // A folder that changed just now may change once more within the same tick of the file system's clock,
  // which is two seconds at worst.
  timespec time;
  ::clock_gettime(CLOCK_REALTIME, &time);
  const std::int64_t settled = nanoseconds(time) - 2'000'000'000;

  std::vector<std::string> found;
  std::vector<std::pair<std::string, bool>> waiting;
  for (const auto& root : roots) waiting.emplace_back(root, true);
  while (!waiting.empty()) {
    const auto [path, isRoot] = std::move(waiting.back());
    waiting.pop_back();
    UniqueFd fd(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | (isRoot ? 0 : O_NOFOLLOW)));
    struct stat info;
    // Before the entries are read: what is added meanwhile makes the time differ.
    const bool there = (fd ? ::fstat(fd.get(), &info) : ::stat(path.c_str(), &info)) == 0;
    const std::int64_t modified = there ? nanoseconds(info.st_mtim) : kAbsent;
    seen.push_back({path, modified >= settled ? kUnsettled : modified});
    DIR* const folder = fd ? ::fdopendir(fd.get()) : nullptr;
    if (!folder) continue;
    const int handle = fd.release();
    while (const dirent* entry = ::readdir(folder)) {
      const std::string_view name = entry->d_name;
      if (name.starts_with('.')) continue;
      const bool named = name == names.whole || (!names.ending.empty() && name.ends_with(names.ending));
      const Kind kind = kindOf(handle, *entry, named);
      if (kind == Kind::folder) waiting.emplace_back(path + "/" + entry->d_name, false);
      if (kind == Kind::file && named) found.push_back(path + "/" + entry->d_name);
    }
    ::closedir(folder);
    if (found.size() > 1) break;
  }
  return found;
}

}  // namespace ostrel

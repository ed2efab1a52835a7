#include "Platform/Linux/PreferenceFile.h"

#include <cerrno>
#include <fcntl.h>
#include <stdio.h>
#include <sys/file.h>
#include <thread>
#include <unistd.h>

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

// Preferences are some kilobytes, drafts with pasted text a few megabytes.
constexpr std::size_t kLargestFile = 32u << 20;
// A lock is held for one read and one write. Who holds it longer is stopped or stuck, and is not waited for.
constexpr auto kLockPatience = std::chrono::seconds(3);
constexpr auto kLockPause = std::chrono::milliseconds(5);
constexpr int kMostSetAside = 1000;

// The lock of all preference files of a folder. It stays when nobody holds it: to remove it would let two in.
class FolderLock {
 public:
  explicit FolderLock(const fs::path& folder) {
    files::makeFolders(folder);
    const fs::path path = folder / ".lock";
    fd_.reset(::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600));
    const auto end = std::chrono::steady_clock::now() + kLockPatience;
    while (!fd_ || ::flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
      const int error = errno;
      if (fd_ && error == EINTR) continue;
      if (!fd_ || error != EWOULDBLOCK || std::chrono::steady_clock::now() > end)
        throw Failure::ofErrno(fmt::format("Could not lock {}", path.string()), error);
      std::this_thread::sleep_for(kLockPause);
    }
  }

 private:
  UniqueFd fd_;
};

// Renames without replacing anything; the error number, or 0.
int renameToFree(const fs::path& from, const fs::path& to) {
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  if (errno != EINVAL && errno != ENOSYS) return errno;
  // A file system that knows no such rename.
  if (::link(from.c_str(), to.c_str()) != 0) return errno;
  return ::unlink(from.c_str()) == 0 ? 0 : errno;
}

}  // namespace

std::optional<PreferenceMap> parsePreferences(std::string_view bytes) {
  auto document = json::parse(bytes);
  if (!document || !document->is_object()) return std::nullopt;
  PreferenceMap values;
  for (auto& [key, value] : document->items()) {
    if (!value.is_null()) values.emplace(key, std::move(value));
  }
  return values;
}

std::string encodePreferences(const PreferenceMap& values) {
  Json document = Json::object();
  for (const auto& [key, value] : values) document[key] = value;
  return json::dumpPretty(document);
}

void applyChanges(PreferenceMap& values, const PreferenceChanges& changes) {
  for (const auto& [key, value] : changes) {
    if (value) {
      values.insert_or_assign(key, *value);
    } else {
      values.erase(key);
    }
  }
}

PreferenceFile::PreferenceFile(fs::path file, std::function<void(std::string_view)> complain)
    : file_(std::move(file)), complain_(std::move(complain)) {}

PreferenceFile::Contents PreferenceFile::load() const {
  auto bytes = files::read(file_, kLargestFile);
  if (bytes) {
    auto values = parsePreferences(*bytes);
    return {std::move(*bytes), std::move(values)};
  }
  if (bytes.error() != ENOENT)
    throw Failure::ofErrno(fmt::format("Could not read {}", file_.string()), bytes.error());
  return {{}, PreferenceMap()};
}

PreferenceMap PreferenceFile::read() const {
  if (auto values = load().values) return std::move(*values);
  // Looked at again under the lock: another program may have set it aside by now, and written a good one.
  const FolderLock lock(file_.parent_path());
  if (auto values = load().values) return std::move(*values);
  setAside();
  return {};
}

PreferenceMap PreferenceFile::write(const PreferenceChanges& changes, const PreferenceMap& known) const {
  const FolderLock lock(file_.parent_path());
  Contents found = load();
  if (!found.values) setAside();
  PreferenceMap values = std::move(found.values).value_or(known);
  applyChanges(values, changes);
  const std::string bytes = encodePreferences(values);
  // What could not be read again must not be written.
  if (bytes.size() > kLargestFile)
    throw Failure::ofErrno(fmt::format("Could not write {}", file_.string()), EFBIG);
  if (bytes != found.bytes) files::replace(file_, bytes);
  return values;
}

void PreferenceFile::remove() const {
  std::error_code error;
  if (!fs::exists(fs::symlink_status(file_, error))) return;
  const FolderLock lock(file_.parent_path());
  if (::unlink(file_.c_str()) != 0 && errno != ENOENT)
    throw Failure::ofErrno(fmt::format("Could not remove {}", file_.string()), errno);
}

void PreferenceFile::setAside() const {
  int error = EEXIST;
  for (int number = 1; number <= kMostSetAside && error == EEXIST; ++number) {
    const std::string name = number == 1 ? fmt::format("{}.broken", file_.string())
                                         : fmt::format("{}.broken-{}", file_.string(), number);
    error = renameToFree(file_, name);
    if (error == 0)
      return complain_(
          fmt::format("{} could not be understood; it was set aside as {}", file_.string(), name));
  }
  throw Failure::ofErrno(fmt::format("{} could not be understood, nor set aside", file_.string()), error);
}

}  // namespace ostrel

#include "Platform/Linux/NativeProcesses.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include <fmt/format.h>

#include "Platform/Linux/ProcFiles.h"
#include "Platform/Linux/ProcessStat.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

// A cache that holds this many is cleared whole before it takes another.
constexpr std::size_t kCacheCap = 4001;
constexpr std::uint64_t kTurns = 12;
constexpr Duration kYoung = std::chrono::seconds(10);
constexpr std::size_t kListBytes = 32 * 1024;
constexpr std::size_t kFileCap = 4 << 20;
constexpr std::int64_t kClockStep = 500'000'000;  // nanoseconds; slewing moves the clocks together

std::int64_t bootOffset() {
  timespec wall{};
  timespec boot{};
  ::clock_gettime(CLOCK_REALTIME, &wall);
  ::clock_gettime(CLOCK_BOOTTIME, &boot);
  return (wall.tv_sec - boot.tv_sec) * 1'000'000'000 + (wall.tv_nsec - boot.tv_nsec);
}

// Where the cache is full and lacks the key, it is emptied first.
template <class Cache, class Key, class Value>
void remember(Cache& cache, const Key& key, Value value) {
  if (cache.size() >= kCacheCap && !cache.contains(key)) cache.clear();
  cache.insert_or_assign(key, std::move(value));
}

}  // namespace

std::size_t NativeProcesses::IdentityHash::operator()(const Identity& identity) const {
  return std::hash<std::uint64_t>()(identity.startTicks * 0x9E3779B97F4A7C15u ^
                                    static_cast<std::uint64_t>(identity.pid));
}

TimePoint NativeProcesses::steadyNow() {
  return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
}

NativeProcesses::NativeProcesses(const std::filesystem::path& procRoot, Now now)
    : root_(::open(procRoot.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)),
      now_(std::move(now)),
      ticksPerSecond_(std::max(1L, ::sysconf(_SC_CLK_TCK))),
      buffer_(kListBytes) {}

NativeProcesses::~NativeProcesses() = default;

std::vector<ProcessRow> NativeProcesses::rows(NameTest followed) {
  const std::scoped_lock lock(tableLock_);
  return refresh(followed, Extent::changed);
}

std::optional<std::string> NativeProcesses::table() {
  std::vector<ProcessRow> rows;
  {
    const std::scoped_lock lock(tableLock_);
    rows = refresh(nullptr, Extent::all);
  }
  if (rows.empty()) return std::nullopt;
  std::string text;
  text.reserve(rows.size() * 80);
  const std::uint32_t own = ownUid();
  for (const ProcessRow& row : rows) {
    const auto user = uid(row.pid);
    if (!user) continue;
    fmt::format_to(std::back_inserter(text), "{} {} {} {} {} {} {}\n", row.pid, row.parent, *user,
                   row.zombie ? 'Z' : 'S', terminalName(row.terminal), startString(row.startSeconds),
                   *user == own ? command(row) : oneLine(row.name()));
  }
  if (text.empty()) return std::nullopt;
  text.pop_back();
  return text;
}

std::vector<ProcessRow> NativeProcesses::refresh(NameTest followed, Extent extent) {
  ++refreshes_;
  refreshedAt_ = now_();
  refused_ = !list();
  ended_.clear();
  if (!refused_) updateBootTime();
  std::swap(entries_, older_);
  entries_.clear();
  entries_.reserve(listed_.size());

  auto old = older_.begin();
  const auto passOver = [&] { ended_.push_back((old++)->row.pid); };
  for (const Listed& listed : listed_) {
    if (refused_) break;
    while (old != older_.end() && old->row.pid < listed.pid) passOver();
    const bool known = old != older_.end() && old->row.pid == listed.pid;
    Entry entry;
    if (known) entry = *old++;
    entry.row.pid = listed.pid;
    const bool replaced = std::exchange(entry.inode, listed.inode) != listed.inode;
    if (!known || replaced || extent == Extent::all || refreshedAt_ - entry.firstSeen < kYoung ||
        entry.row.terminal != 0 || static_cast<std::uint64_t>(listed.pid) % kTurns == refreshes_ % kTurns ||
        (followed && followed(entry.row.name())))
      read(entry);
    if (!entry.vanished) entries_.push_back(entry);
  }
  while (old != older_.end()) passOver();

  readOrphans();
  if (followed) {
    for (const Entry& entry : entries_) {
      if (followed(entry.row.name())) readAncestors(entry);
    }
  }
  // Half a table would make agents vanish from the list.
  if (refused_) entries_.clear();

  std::erase_if(entries_, [](const Entry& entry) { return entry.vanished; });
  std::vector<ProcessRow> rows;
  rows.reserve(entries_.size());
  for (const Entry& entry : entries_) rows.push_back(entry.row);
  return rows;
}

bool NativeProcesses::list() {
  listed_.clear();
  if (!root_ || ::lseek(root_.get(), 0, SEEK_SET) < 0) return false;
  for (;;) {
    const ssize_t size = ::getdents64(root_.get(), buffer_.data(), buffer_.size());
    if (size < 0) return false;
    if (size == 0) break;
    for (ssize_t offset = 0; offset < size;) {
      dirent64 head;
      const char* const at = buffer_.data() + offset;
      std::memcpy(&head, at, offsetof(dirent64, d_name));
      const char* const name = at + offsetof(dirent64, d_name);
      offset += head.d_reclen;
      if (*name < '1' || *name > '9') continue;
      std::int32_t pid = 0;
      const auto [rest, error] = std::from_chars(name, at + head.d_reclen, pid);
      if (error == std::errc() && *rest == '\0') listed_.push_back({pid, head.d_ino});
    }
  }
  // The kernel lists them in order; an ordinary folder does not.
  if (!std::ranges::is_sorted(listed_, {}, &Listed::pid)) std::ranges::sort(listed_, {}, &Listed::pid);
  return true;
}

// The boot time is what ps reckons with. It moves when the clock is set; rows known by then keep the start
// they were given, so that the text that identifies them stays the same.
void NativeProcesses::updateBootTime() {
  const std::int64_t offset = bootOffset();
  if (bootTime_ && std::abs(offset - bootOffset_) < kClockStep) return;
  bootOffset_ = offset;
  bootTime_ = parseBootTime(readProcFile(root_.get(), "stat", kFileCap)).value_or(0);
}

void NativeProcesses::read(Entry& entry) {
  std::array<char, 1024> bytes;
  const UniqueFd file(
      ::openat(root_.get(), ProcessPath(entry.row.pid, "stat").c_str(), O_RDONLY | O_CLOEXEC));
  const ssize_t size = file ? ::read(file.get(), bytes.data(), bytes.size()) : -1;
  const bool outOfRoom = size < 0 && (errno == EMFILE || errno == ENFILE || errno == ENOMEM);
  if (outOfRoom) refused_ = true;
  const auto row = size > 0 ? parseProcessStat({bytes.data(), static_cast<std::size_t>(size)}) : std::nullopt;
  const bool known = entry.readAt != 0;
  const bool ended = !row || row->startTicks != entry.row.startTicks;
  if (known && (ended || (row->zombie && !entry.row.zombie))) ended_.push_back(entry.row.pid);
  entry.vanished = !row;
  entry.readAt = refreshes_;
  if (!row) return;

  const std::int32_t pid = entry.row.pid;
  const std::int64_t seconds = entry.row.startSeconds;
  entry.row = *row;
  entry.row.pid = pid;
  if (known && !ended) {
    entry.row.startSeconds = seconds;
  } else {
    entry.firstSeen = refreshedAt_;
    entry.row.startSeconds =
        bootTime_.value_or(0) + static_cast<std::int64_t>(row->startTicks) / ticksPerSecond_;
  }
}

// Children of a process that ended belong to another parent now.
void NativeProcesses::readOrphans() {
  while (!ended_.empty()) {
    std::vector<std::int32_t> ended = std::exchange(ended_, {});
    std::ranges::sort(ended);
    for (Entry& entry : entries_) {
      if (entry.readAt != refreshes_ && std::ranges::binary_search(ended, entry.row.parent)) read(entry);
    }
  }
}

void NativeProcesses::readAncestors(const Entry& entry) {
  const Entry* child = &entry;
  for (std::size_t steps = 0; steps < entries_.size(); ++steps) {  // a made-up table may hold a circle
    const auto parent =
        std::ranges::lower_bound(entries_, child->row.parent, {}, [](const Entry& e) { return e.row.pid; });
    if (parent == entries_.end() || parent->row.pid != child->row.parent || parent->vanished) return;
    if (parent->readAt != refreshes_) read(*parent);
    child = &*parent;
  }
}

std::optional<std::uint32_t> NativeProcesses::uid(std::int32_t pid) {
  // The folder has the effective user; the files in it belong to root where the program forbids tracing.
  struct stat status{};
  if (::fstatat(root_.get(), ProcessPath(pid).c_str(), &status, 0) != 0) return std::nullopt;
  return status.st_uid;
}

std::string NativeProcesses::command(const ProcessRow& row) {
  const Identity identity{row.pid, row.startTicks};
  {
    const std::scoped_lock lock(commandLock_);
    const auto known = commands_.find(identity);
    if (known != commands_.end() && known->second.comm == row.comm) return known->second.command;
  }
  const std::string_view name = text::dropSuffix(row.name(), ".exe");
  const std::string path = executablePath(row.pid);
  const bool bundled = path.contains(".app/Contents/MacOS/");
  const bool named = !path.empty() && text::dropSuffix(text::lastPathComponent(path), ".exe") == name;
  std::string command = oneLine(bundled || named ? std::string_view(path) : name);
  const std::scoped_lock lock(commandLock_);
  remember(commands_, identity, NamedCommand{row.comm, command});
  return command;
}

std::string NativeProcesses::terminalName(std::int32_t device) {
  if (device == 0 || device == -1) return "??";
  const std::scoped_lock lock(cacheLock_);
  auto [entry, fresh] = ttyNames_.try_emplace(device);
  if (fresh)
    entry->second =
        parseTerminalName(device, readProcFile(root_.get(), "tty/drivers", kFileCap)).value_or("??");
  return entry->second;
}

std::string NativeProcesses::startString(std::int64_t seconds) {
  static constexpr std::array kDays = {"Sun", "Mon", "Tue", "Wed", "Thu", "Fri", "Sat"};
  static constexpr std::array kMonths = {"Jan", "Feb", "Mar", "Apr", "May", "Jun",
                                         "Jul", "Aug", "Sep", "Oct", "Nov", "Dec"};
  const std::scoped_lock lock(cacheLock_);
  if (const auto known = startStrings_.find(seconds); known != startStrings_.end()) return known->second;
  const std::time_t time = seconds;
  std::tm local{};
  ::localtime_r(&time, &local);
  std::string started =
      fmt::format("{} {} {} {:02}:{:02}:{:02} {}", kDays[static_cast<std::size_t>(local.tm_wday)],
                  kMonths[static_cast<std::size_t>(local.tm_mon)], local.tm_mday, local.tm_hour, local.tm_min,
                  local.tm_sec, local.tm_year + 1900);
  remember(startStrings_, seconds, started);
  return started;
}

bool NativeProcesses::alive(std::int32_t pid) { return pid > 0 && ::kill(pid, 0) == 0; }

std::uint32_t NativeProcesses::ownUid() { return ::getuid(); }

}  // namespace ostrel

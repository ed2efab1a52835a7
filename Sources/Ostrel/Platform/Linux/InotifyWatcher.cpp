#include "Platform/Linux/InotifyWatcher.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstring>
#include <sys/inotify.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

constexpr std::uint32_t kEvents = IN_CREATE | IN_MODIFY | IN_CLOSE_WRITE | IN_MOVED_FROM | IN_MOVED_TO |
                                  IN_DELETE | IN_DELETE_SELF | IN_MOVE_SELF;
constexpr std::uint32_t kGone = IN_DELETE_SELF | IN_MOVE_SELF | IN_UNMOUNT | IN_IGNORED;
constexpr int kAllFolders = -1;  // the kernel's own number in an overflow

}  // namespace

InotifyWatcher::~InotifyWatcher() = default;

Registration InotifyWatcher::watchFolder(const std::filesystem::path& folder, Changed changed) {
  if (!open()) return {};
  const int number = ::inotify_add_watch(inotify_.get(), folder.c_str(), kEvents | IN_ONLYDIR);
  if (number < 0) return {};
  auto entry = std::make_shared<Entry>(number, std::move(changed));
  entries_.push_back(entry);
  return Registration([this, entry = std::move(entry)] { remove(entry); });
}

bool InotifyWatcher::open() {
  if (inotify_) return true;
  inotify_.reset(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC));
  if (!inotify_) return false;
  try {
    watch_ = loop_.watch(inotify_.get(), {.read = true}, [this](Interest) { serve(); });
  } catch (const Failure&) {
    inotify_.reset();
    return false;
  }
  return true;
}

void InotifyWatcher::remove(const std::shared_ptr<Entry>& entry) {
  if (!std::exchange(entry->active, false)) return;
  std::erase(entries_, entry);
  if (of(entry->folder).empty()) ::inotify_rm_watch(inotify_.get(), entry->folder);
}

void InotifyWatcher::serve() {
  alignas(inotify_event) std::array<char, 16384> bytes;
  const ssize_t size = ::read(inotify_.get(), bytes.data(), bytes.size());
  for (ssize_t offset = 0; offset < size;) {
    inotify_event event;
    const char* const at = bytes.data() + offset;
    std::memcpy(&event, at, sizeof event);
    offset += static_cast<ssize_t>(sizeof event + event.len);
    if (event.mask & IN_Q_OVERFLOW) {
      tell(of(kAllFolders), {});
    } else if (event.mask & kGone) {
      folderGone(event.wd);
    } else if (event.len > 0) {
      tell(of(event.wd), at + sizeof event);  // padded with zeros
    }
  }
}

InotifyWatcher::Entries InotifyWatcher::of(int folder) const {
  Entries found;
  std::ranges::copy_if(entries_, std::back_inserter(found), [folder](const auto& entry) {
    return folder == kAllFolders || entry->folder == folder;
  });
  return found;
}

void InotifyWatcher::tell(const Entries& entries, std::string_view name) {
  for (const auto& entry : entries) {
    if (entry->active) entry->changed(name);
  }
}

void InotifyWatcher::folderGone(int folder) {
  const Entries dead = of(folder);
  if (dead.empty()) return;
  // A moved folder would go on telling under a path that is wrong now.
  ::inotify_rm_watch(inotify_.get(), folder);
  std::erase_if(entries_, [folder](const auto& entry) { return entry->folder == folder; });
  for (const auto& entry : dead) {
    if (std::exchange(entry->active, false)) entry->changed({});
  }
}

}  // namespace ostrel

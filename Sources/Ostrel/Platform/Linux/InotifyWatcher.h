// Changes in folders through inotify, watched by the main loop. The real `FileWatcher`. Main thread only.
//
// One inotify descriptor serves all folders. It is opened with the first and kept: the kernel's numbers of
// folders are not used again within one descriptor, so an event that is still on its way can't be taken for
// another folder's.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "Platform/FileWatcher.h"
#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class InotifyWatcher final : public FileWatcher {
 public:
  // `loop` outlives this object, and this object every registration.
  explicit InotifyWatcher(MainLoop& loop) : loop_(loop) {}
  ~InotifyWatcher() override;

  Registration watchFolder(const std::filesystem::path& folder, Changed changed) override;

 private:
  struct Entry {
    int folder;  // the kernel's number of the folder; registrations of one folder share it
    Changed changed;
    bool active = true;
  };
  using Entries = std::vector<std::shared_ptr<Entry>>;

  bool open();
  void remove(const std::shared_ptr<Entry>& entry);
  void serve();
  // The registrations of a folder, of all for -1. A snapshot, since callbacks come and go.
  Entries of(int folder) const;
  void tell(const Entries& entries, std::string_view name);
  void folderGone(int folder);

  MainLoop& loop_;
  UniqueFd inotify_;
  Watch watch_;
  Entries entries_;
};

}  // namespace ostrel

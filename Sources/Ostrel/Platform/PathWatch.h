// Tells when something may have come at, or gone from, a path, though folders on the way to it may not exist
// yet: the nearest existing one is watched. Nothing runs until then. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <string>

#include "Platform/FileWatcher.h"

namespace ostrel {

class PathWatch {
 public:
  // `changed` is called once or more for each change; it may reset this object's owner's other watches, not
  // this one. `files` outlives this.
  PathWatch(FileWatcher& files, std::filesystem::path path, std::function<void()> changed);
  PathWatch(const PathWatch&) = delete;
  PathWatch& operator=(const PathWatch&) = delete;

  // False where nothing can be watched: look again by yourself.
  bool watches() const { return static_cast<bool>(watch_); }

 private:
  void arm();

  FileWatcher& files_;
  const std::filesystem::path path_;
  const std::function<void()> changed_;
  std::string awaited_;  // the entry of the watched folder that is on the way
  Registration watch_;
};

}  // namespace ostrel

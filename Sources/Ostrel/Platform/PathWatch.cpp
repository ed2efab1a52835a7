#include "Platform/PathWatch.h"

#include <utility>

namespace ostrel {

namespace {

// Folders that come and go while we look: then one too high is watched, which still tells.
constexpr int kMostTries = 16;

}  // namespace

PathWatch::PathWatch(FileWatcher& files, std::filesystem::path path, std::function<void()> changed)
    : files_(files), path_(std::move(path)), changed_(std::move(changed)) {
  arm();
}

void PathWatch::arm() {
  for (int tries = 0; tries < kMostTries; ++tries) {
    watch_.reset();
    std::filesystem::path folder = path_.parent_path();
    awaited_ = path_.filename();
    for (;;) {
      watch_ = files_.watchFolder(folder, [this](std::string_view name) {
        if (!name.empty() && name != awaited_) return;
        arm();
        changed_();
      });
      if (watch_ || folder == folder.parent_path()) break;
      awaited_ = folder.filename();
      folder = folder.parent_path();
    }
    // A folder on the way may have come before the watch did.
    std::error_code error;
    const bool nearest = folder == path_.parent_path();
    if (!watch_ || nearest || !std::filesystem::is_directory(folder / awaited_, error)) return;
  }
}

}  // namespace ostrel

// Tells when the entries of a folder change, from the kernel, without polling. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <string_view>

#include "Runtime/Registration.h"

namespace ostrel {

class FileWatcher {
 public:
  // `name` is the entry that was made, written, replaced or removed; empty when the folder itself went or
  // events were lost: then look at everything again.
  using Changed = std::move_only_function<void(std::string_view name)>;

  FileWatcher() = default;
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;
  virtual ~FileWatcher() = default;

  // Watches an existing folder (not the folders in it). An empty registration when it is missing or can't be
  // watched: try again later. After the folder itself was removed, moved or unmounted, `changed("")` comes
  // once and the registration is dead: reset it and watch anew. Several registrations of one folder are
  // independent. Callbacks may reset any registration and make new ones.
  virtual Registration watchFolder(const std::filesystem::path& folder, Changed changed) = 0;
};

}  // namespace ostrel

// Keeps the permission hook and the server that answers it as the person wants them, while the program runs:
// another program ("ostrelctl hook off") may change that wish, and anybody the settings that name the hook.
//
// How the hub uses it: `start` when discovery starts. Main thread only; files are read in the background.
// Nothing runs between changes: the folders of both files are watched.
#pragma once

#include <filesystem>
#include <string>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/ClaudePermissions.h"
#include "Platform/FileWatcher.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

class HookFollower {
 public:
  struct Ports {
    MainLoop& loop;
    Background& pool;
    FileWatcher& files;
  };
  // Lets a burst of events fold into one look.
  static constexpr Duration kSettling = std::chrono::milliseconds(100);

  // `preferenceFolder` is where the file of `preferences` lies. `permissions` and `preferences` outlive this.
  HookFollower(Ports ports, ClaudePermissions& permissions, Preferences& preferences,
               std::filesystem::path preferenceFolder);

  // Puts the hook in and starts `server`, unless the person has turned the hook off, and follows that wish
  // from now on: off, the server lets all waiting hooks go. Does nothing when started before. `server` is
  // stopped by its owner before it goes, and then no change may come any more.
  void start(ClaudePermissionServer& server);

  Published<ClaudeHookState>& state() { return permissions_.state(); }

 private:
  Task<void> follow();
  void watch();
  void serve();

  Ports ports_;
  ClaudePermissions& permissions_;
  Preferences& preferences_;
  const std::filesystem::path preferenceFolder_;
  ClaudePermissionServer* server_ = nullptr;
  WakeFlag changed_;
  Registration settingsWatch_;
  Registration preferencesWatch_;
  Subscription wish_;
  TaskScope tasks_;
};

}  // namespace ostrel

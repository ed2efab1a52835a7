#include "Claude/HookFollower.h"

#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/Files.h"

namespace ostrel {

HookFollower::HookFollower(Ports ports, ClaudePermissions& permissions, Preferences& preferences,
                           std::filesystem::path preferenceFolder)
    : ports_(ports),
      permissions_(permissions),
      preferences_(preferences),
      preferenceFolder_(std::move(preferenceFolder)),
      tasks_(ports.loop) {}

void HookFollower::start(ClaudePermissionServer& server) {
  if (std::exchange(server_, &server)) return;
  permissions_.installAtLaunch();
  try {
    files::makeFolders(preferenceFolder_);
  } catch (const Failure&) {
    // Then nobody can store a wish in it either.
  }
  watch();
  wish_ = permissions_.state().observe([this] { serve(); });
  serve();
  tasks_.start(follow());
}

void HookFollower::serve() {
  if (permissions_.state()->wanted) {
    server_->start();
  } else {
    server_->stop();
  }
}

void HookFollower::watch() {
  const std::filesystem::path settings = permissions_.settingsURL();
  if (!settingsWatch_) {
    settingsWatch_ = ports_.files.watchFolder(
        settings.parent_path(), [this, name = settings.filename().string()](std::string_view changed) {
          if (changed.empty()) settingsWatch_.reset();
          if (changed.empty() || changed == name) changed_.raise();
        });
  }
  if (!preferencesWatch_) {
    preferencesWatch_ = ports_.files.watchFolder(preferenceFolder_, [this](std::string_view changed) {
      if (changed.empty()) preferencesWatch_.reset();
      if (changed.empty() || changed.ends_with(".json")) changed_.raise();
    });
  }
}

Task<void> HookFollower::follow() {
  for (;;) {
    co_await changed_.wait();
    co_await sleepFor(kSettling);
    changed_.lower();
    watch();
    const auto entry =
        co_await ports_.pool.run([&permissions = permissions_, &preferences = preferences_](std::stop_token) {
          preferences.reread();
          return permissions.look();
        });
    permissions_.seen(entry);
  }
}

}  // namespace ostrel

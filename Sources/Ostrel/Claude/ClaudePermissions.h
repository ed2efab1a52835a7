// The hook's side of Claude Code's permission prompts: where the hook finds us, and the entry in Claude
// Code's settings that makes it run the launcher.
//
// How the hub uses it: `installAtLaunch` right after `ClaudePermissionServer::start`, unless it is a fixture
// run; `setEnabled` from the settings page and from onboarding, which show the failure's words. The entry
// stays when the program quits: without a server the hook leaves the decision to the terminal.
//
// Main thread, because of the preferences; `isInstalled`, `readSettings` and `setInstalled` touch none and
// may run in the background. All block while one small file is read or replaced.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Environment.h"
#include "Platform/Preferences.h"
#include "Runtime/Json.h"

namespace ostrel {

class ClaudePermissions {
 public:
  // Takes an event for the usage statistics: its name and properties.
  using Capture = std::function<void(std::string_view event, const Json& properties)>;

  // True when the user turned the hook off: then no launch puts it back.
  static constexpr char kOffKey[] = "settings.claudePermissionsOff";

  // `executable` is the launcher, by an absolute path: what the hook's command runs. `preferences` outlives
  // this.
  ClaudePermissions(Environment environment, std::filesystem::path executable, Preferences& preferences,
                    Capture capture = {});

  // The path of the server's socket, its folder made where it is ours to make. Empty when there is none or
  // an address can't hold it. A fixture run has one of its own, by its process id.
  static std::string socketPath(const Environment& environment, std::optional<std::int32_t> fixturePid = {});

  std::filesystem::path settingsURL() const;
  // A shell command that still succeeds after the program was moved or deleted.
  std::string hookCommand() const;

  bool isInstalled() const;
  // The settings' root object, empty where there is no file; nothing when the file can't be read or is no
  // JSON object.
  std::optional<Json> readSettings() const;
  // Puts the hook in or takes it out, keeping a backup of the file from before the first edit. Writes nothing
  // when nothing is to be changed. Throws `Failure`, and then the file is as it was.
  void setInstalled(bool on);
  // The user's choice: `setInstalled`, and remembered when that didn't throw.
  void setEnabled(bool on);
  // Puts the hook in, or renews its path, unless the user has turned it off. Failures are swallowed.
  void installAtLaunch();

 private:
  const Environment environment_;
  const std::filesystem::path executable_;
  Preferences& preferences_;
  const Capture capture_;
};

}  // namespace ostrel

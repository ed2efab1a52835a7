// The hook's side of Claude Code's permission prompts: where the hook finds us, and the entry in Claude
// Code's settings that makes it run the launcher.
//
// How it is used: `HookFollower` calls `installAtLaunch` and looks again after changes; `setEnabled` is the
// person's word, from `ostrelctl hook` and from settings pages, which show the failure's words. The entry
// stays when the program quits: without a server the hook leaves the decision to the terminal.
//
// Main thread, because of the preferences; `isInstalled`, `look` and `setInstalled` touch none and may run in
// the background. All block while one small file is read or replaced.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "Claude/ClaudeSettings.h"
#include "Platform/Environment.h"
#include "Platform/Preferences.h"
#include "Runtime/Json.h"
#include "Runtime/Published.h"

namespace ostrel {

// How the hook stands, as a person is told.
struct ClaudeHookState {
  bool wanted = true;   // the person has not turned it off
  bool stands = false;  // Claude Code's settings name a hook of ours ...
  std::string program;  // ... that runs this program, as far as that can be told
  std::string problem;  // why it is not as it is wanted; empty where all is well
  bool operator==(const ClaudeHookState&) const = default;
};

class ClaudePermissions {
 public:
  // What the settings file says of the hook.
  struct Entry {
    bool stands = false;
    std::string program;
    bool programThere = false;
    std::string hindrance;  // why it couldn't be put in now; empty where it could
  };

  // Takes an event for the usage statistics: its name and properties.
  using Capture = std::function<void(std::string_view event, const Json& properties)>;

  // True when the user turned the hook off: then no launch puts it back.
  static constexpr PreferenceKey<bool> kOffKey{"settings.claudePermissionsOff"};

  // `executable` is the launcher: what the hook's command runs. Nothing is put in for one whose path is not
  // absolute: Claude Code runs hooks in the folders of its conversations, where anything may have that name.
  // `preferences` outlives this.
  ClaudePermissions(Environment environment, std::filesystem::path executable, Preferences& preferences,
                    Capture capture = {});

  // The path of the server's socket, its folder made where it is ours to make. Empty when there is none or
  // an address can't hold it. A fixture run has one of its own, by its process id.
  static std::string socketPath(const Environment& environment, std::optional<std::int32_t> fixturePid = {});

  std::filesystem::path settingsURL() const;
  // A shell command that still succeeds after the program was moved or deleted.
  std::string hookCommand() const;

  bool isInstalled() const;
  Entry look() const;
  // Puts the hook in or takes it out, keeping a backup of the file from before the first edit. Writes nothing
  // when nothing is to be changed, and never to a file that its owner made read-only. Throws `Failure`, and
  // then the file is as it was.
  void setInstalled(bool on);
  // The user's choice: `setInstalled`, and remembered when that didn't throw.
  void setEnabled(bool on);
  // Puts the hook in, renews its path, or adds what an older version did not put in, unless the user has
  // turned it off. What hinders that is told by `state`.
  void installAtLaunch();

  // As it was looked at last: at one of the calls above, or at `seen`.
  Published<ClaudeHookState>& state() { return state_; }
  // Takes in what `look` gave, and the preference as it is now.
  void seen(const Entry& entry);

 private:
  void edit(bool on, std::span<const claudeSettings::Event> events);
  void complete();
  std::string hindrance(const std::optional<Json>& settings) const;
  std::string problem(const ClaudeHookState& state, const Entry& entry) const;

  const Environment environment_;
  const std::filesystem::path executable_;
  Preferences& preferences_;
  const Capture capture_;
  bool stood_ = false;  // the entry was seen in its place
  Published<ClaudeHookState> state_;
};

}  // namespace ostrel

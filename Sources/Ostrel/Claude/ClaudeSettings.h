// The edit of Claude Code's settings.json that puts our hook in or takes it out. Pure functions
// over the file's text; any thread.
//
// The file is the user's: the edit touches its own place in the text and leaves every other byte as it was
// (order of keys, numbers, indentation). Only where that can't be proven to give the right value is the file
// written anew from its value.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Runtime/Json.h"

namespace ostrel::claudeSettings {

// The settings' root object; nothing when the text is not JSON (comments are not) or its root no object.
std::optional<Json> parse(std::string_view text);

// An event of which Claude Code tells our hook.
struct Event {
  const char* name;
  const char* matcher;
  int timeout;  // seconds, after which Claude Code ends the hook
  bool operator==(const Event&) const = default;
};

// Only events that every version with hooks knows may stand here: one that meets an event it does not know
// refuses the whole file (seen up to 2.1.50), the person's own rules with it.
inline constexpr Event kPermissionRequest{"PermissionRequest", "", 600};
inline constexpr Event kForms{"Notification",
                              "elicitation_dialog|elicitation_url_dialog|elicitation_response", 10};
inline constexpr Event kEvents[] = {kPermissionRequest, kForms};

// What is of such a kind that our hook of PermissionRequest can't be put into it: `"hooks"`, or
// `"hooks.PermissionRequest"`. A null is as good as nothing. The words name it; nothing where the edit can be
// made. Of the other events one that is of such a kind is left as it is.
std::optional<std::string> wrongKind(const Json& root);

// The command of our hook of PermissionRequest, whatever copy of the program it names; nothing where there is
// none.
std::optional<std::string> ourCommand(const Json& root);
// Those of our events that have no hook with exactly this command, and could have one.
std::vector<Event> missing(const Json& root, std::string_view command);

// The settings with our group as the last of each of these events and nowhere else in them, or without it.
// Lists that end up empty go with their keys; what is no group stays where it stands. Where there is a
// `wrongKind`, nothing changes.
Json edited(Json root, bool on, const std::string& command, std::span<const Event> events = kEvents);

// The same on the text: what it gives parses to exactly `edited` of what it was given. The text as it stands
// where nothing is to be changed or can be; nothing where `parse` gives nothing.
std::optional<std::string> editText(std::string_view text, bool on, const std::string& command,
                                    std::span<const Event> events = kEvents);

}  // namespace ostrel::claudeSettings

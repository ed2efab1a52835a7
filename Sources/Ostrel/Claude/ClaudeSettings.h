// The edit of Claude Code's settings.json that puts our permission hook in or takes it out. Pure functions
// over the file's text; any thread.
//
// The file is the user's: the edit touches its own place in the text and leaves every other byte as it was
// (order of keys, numbers, indentation). Only where that can't be proven to give the right value is the file
// written anew from its value.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Runtime/Json.h"

namespace ostrel::claudeSettings {

// The settings' root object; nothing when the text is not JSON (comments are not) or its root no object.
std::optional<Json> parse(std::string_view text);

// What is of such a kind that nothing can be put into it: `"hooks"`, or `"hooks.PermissionRequest"`. A null
// is as good as nothing. The words name it; nothing where the edit can be made.
std::optional<std::string> wrongKind(const Json& root);

// The command of our hook of PermissionRequest, whatever copy of the program it names; nothing where there is
// none.
std::optional<std::string> ourCommand(const Json& root);
// Whether a hook of PermissionRequest has exactly this command.
bool hasCommand(const Json& root, std::string_view command);

// The settings with our group as the last of PermissionRequest and nowhere else, or without it. Lists that
// end up empty go with their keys; what is no group stays where it stands. Where there is a `wrongKind`,
// nothing changes.
Json edited(Json root, bool on, const std::string& command);

// The same on the text: what it gives parses to exactly `edited` of what it was given. The text as it stands
// where nothing is to be changed or can be; nothing where `parse` gives nothing.
std::optional<std::string> editText(std::string_view text, bool on, const std::string& command);

}  // namespace ostrel::claudeSettings

// The keys of what the core stores beside the person's switches (`OstrelSetting`), each with its kind. Keys
// that hold an agent's or a terminal's name are made where they are used: `agentTitle.` and the agent's id is
// its title, `manualLinkKey` names its conversation.
#pragma once

#include <string>

#include "Platform/Preferences.h"

namespace ostrel::preferenceKeys {

// Herdr's program; absent or empty: searched.
inline constexpr PreferenceKey<std::string> kHerdrExecutable{"herdrExecutable"};
// The one session that is joined; absent or empty: all.
inline constexpr PreferenceKey<std::string> kHerdrSession{"herdrSessionOverride"};
// The link with Herdr is made at the next launch; false: the person has left it.
inline constexpr PreferenceKey<bool> kHerdrReconnect{"herdrReconnect"};
// A session of the product's own is started where none runs.
inline constexpr PreferenceKey<bool> kHerdrManagedServer{"herdrManagedServer"};

}  // namespace ostrel::preferenceKeys

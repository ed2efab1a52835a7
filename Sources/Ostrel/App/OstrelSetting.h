// The settings that the user switches, by their preference keys.
#pragma once

#include "Platform/Preferences.h"

namespace ostrel {

struct OstrelSetting {
  static constexpr PreferenceKey<bool> openOnHover{"settings.openOnHover"};
  static constexpr PreferenceKey<bool> notchLights{"settings.notchLights"};
  static constexpr PreferenceKey<bool> doubleOptionOpens{"settings.doubleOptionOpens"};
  static constexpr PreferenceKey<bool> notifyNeedsYou{"settings.notifyNeedsYou"};
  static constexpr PreferenceKey<bool> notifyDone{"settings.notifyDone"};
  static constexpr PreferenceKey<bool> soundFinished{"settings.soundFinished"};
  static constexpr PreferenceKey<bool> soundNeedsYou{"settings.soundNeedsYou"};
  static constexpr PreferenceKey<bool> showInDock{"settings.showInDock"};

  // Answers for keys that the user has not set; registered at launch, never written.
  static const PreferenceMap& defaults();
};

}  // namespace ostrel

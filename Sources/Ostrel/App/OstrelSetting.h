// The settings that the user switches, by their preference keys.
#pragma once

#include "Platform/Preferences.h"

namespace ostrel {

struct OstrelSetting {
  static constexpr char openOnHover[] = "settings.openOnHover";
  static constexpr char notchLights[] = "settings.notchLights";
  static constexpr char doubleOptionOpens[] = "settings.doubleOptionOpens";
  static constexpr char notifyNeedsYou[] = "settings.notifyNeedsYou";
  static constexpr char notifyDone[] = "settings.notifyDone";
  static constexpr char soundFinished[] = "settings.soundFinished";
  static constexpr char soundNeedsYou[] = "settings.soundNeedsYou";
  static constexpr char showInDock[] = "settings.showInDock";

  // Answers for keys that the user has not set; registered at launch, never written.
  static const PreferenceMap& defaults();
};

}  // namespace ostrel

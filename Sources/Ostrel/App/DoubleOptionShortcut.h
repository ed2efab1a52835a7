// A double tap of Control, anywhere, opens the agent list. Main thread only.
//
// The key was Option once: the setting, and so the name, stayed.
#pragma once

#include <functional>
#include <optional>

#include "Platform/ModifierKeys.h"
#include "Platform/Preferences.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class DoubleOptionShortcut {
 public:
  // The second tap must end less than this after the first.
  static constexpr Duration kSpan = std::chrono::milliseconds(400);

  struct Ports {
    MainLoop& loop;
    ModifierKeys& keys;
    Preferences& preferences;
  };
  DoubleOptionShortcut(Ports ports, std::function<void()> action);

  // To be called at the launch and whenever the setting was changed.
  void update();

 private:
  void handle(ModifierState state);

  Ports ports_;
  std::function<void()> action_;
  bool optionDown_ = false;
  std::optional<TimePoint> lastTap_;
  Registration monitor_;
};

}  // namespace ostrel

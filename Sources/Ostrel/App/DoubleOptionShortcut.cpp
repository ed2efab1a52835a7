#include "App/DoubleOptionShortcut.h"

#include <utility>

#include "App/OstrelSetting.h"

namespace ostrel {

DoubleOptionShortcut::DoubleOptionShortcut(Ports ports, std::function<void()> action)
    : ports_(ports), action_(std::move(action)) {}

void DoubleOptionShortcut::update() {
  monitor_.reset();
  optionDown_ = false;
  lastTap_.reset();
  if (ports_.preferences.boolean(OstrelSetting::doubleOptionOpens))
    monitor_ = ports_.keys.observe([this](ModifierState state) { handle(state); });
}

void DoubleOptionShortcut::handle(ModifierState state) {
  if (state == ModifierState::controlAlone) {
    optionDown_ = true;
    return;
  }
  if (state != ModifierState::none || !optionDown_) {
    optionDown_ = false;
    lastTap_.reset();
    return;
  }
  optionDown_ = false;
  const TimePoint now = ports_.loop.now();
  const auto before = std::exchange(lastTap_, now);
  if (!before || now - *before >= kSpan) return;
  lastTap_.reset();
  action_();
}

}  // namespace ostrel

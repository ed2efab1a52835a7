// The screen that the edge belongs to, with the part of it that the desktop's bars leave. Main thread only.
#pragma once

#include <QAbstractNativeEventFilter>
#include <functional>
#include <optional>

#include "Platform/Screens.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class DesktopScreens final : public Screens, private QAbstractNativeEventFilter {
 public:
  // Windows come and go in bursts; a bar that came is heeded so much later.
  static constexpr Duration kSettle = std::chrono::milliseconds(200);

  explicit DesktopScreens(MainLoop& loop);
  ~DesktopScreens() override;

  // From memory until `forget`: asking the display server takes a few round trips for each window there is.
  std::optional<Screen> main() const override;
  void forget() { known_ = false; }
  // A bar may have come or gone.
  std::function<void()> onAreas;

 private:
  bool nativeEventFilter(const QByteArray& type, void* message, qintptr* result) override;

  MainLoop& loop_;
  mutable bool known_ = false;
  mutable std::optional<Screen> main_;
  Timer settle_;
};

}  // namespace ostrel

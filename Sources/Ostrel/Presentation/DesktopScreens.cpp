#include "DesktopScreens.h"

#include <QGuiApplication>
#include <QScreen>
#include <cmath>

#include "App/ScreenArea.h"
#include "X11Windows.h"

namespace ostrel {

namespace {

// The screen's place is in pixels already, its size in points.
Screen read(const QScreen& screen) {
  const qreal scale = screen.devicePixelRatio();
  const QRect points = screen.geometry();
  const auto pixels = [scale](int length) { return static_cast<int>(std::lround(length * scale)); };
  const auto inside = [scale](int length) { return static_cast<int>(std::floor(length / scale)); };
  const auto outside = [scale](int length) { return static_cast<int>(std::ceil(length / scale)); };
  const Rect frame{points.x(), points.y(), points.width(), points.height()};
  const Rect whole{frame.x, frame.y, pixels(frame.width), pixels(frame.height)};
  const std::vector<Strut> struts = x11::struts();
  std::vector<Rect> areas = x11::workAreas();
  // One area for several screens tells only what bars there are, not on which of them: struts tell it better.
  const bool several = QGuiApplication::screens().size() > 1;
  if (several && areas.size() == 1 && !struts.empty()) areas.clear();
  const Rect rest = visibleArea(whole, x11::desktopSize(), struts, areas);
  const int left = outside(rest.x - whole.x);
  const int top = outside(rest.y - whole.y);
  return {frame,
          {frame.x + left, frame.y + top, inside(rest.right() - whole.x) - left,
           inside(rest.bottom() - whole.y) - top}};
}

}  // namespace

DesktopScreens::DesktopScreens(MainLoop& loop) : loop_(loop) {
  QCoreApplication::instance()->installNativeEventFilter(this);
}

DesktopScreens::~DesktopScreens() {
  if (auto* const application = QCoreApplication::instance()) application->removeNativeEventFilter(this);
}

std::optional<Screen> DesktopScreens::main() const {
  const QScreen* const screen = QGuiApplication::primaryScreen();
  if (!screen || screen->geometry().isEmpty()) return std::nullopt;
  if (!known_) main_ = read(*screen);
  known_ = true;
  return main_;
}

bool DesktopScreens::nativeEventFilter(const QByteArray& type, void* message, qintptr*) {
  if (type == "xcb_generic_event_t" && x11::changesAreas(message)) {
    settle_ = loop_.after(kSettle, [this] {
      forget();
      if (onAreas) onAreas();
    });
  }
  return false;
}

}  // namespace ostrel

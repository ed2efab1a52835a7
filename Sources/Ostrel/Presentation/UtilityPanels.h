// The four windows: what `EdgeState` tells goes to Qt. Main thread only.
#pragma once

#include <QObject>
#include <QQmlEngine>
#include <array>
#include <functional>
#include <memory>

#include "Appearance.h"
#include "Platform/EdgeWindows.h"
#include "Runtime/MainLoop.h"
#include "UtilityPanel.h"

namespace ostrel {

class UtilityPanels final : public EdgeWindows {
 public:
  // Nothing but the handle is there, and has been for so long: the views of the others are given back, and
  // made anew when they are next asked for.
  static constexpr Duration kRest = std::chrono::seconds(10);

  // How long a window manager may take to give the keyboard of a window that went to another.
  static constexpr Duration kManagersChoice = std::chrono::milliseconds(60);

  // `inert`: the windows take no clicks at all.
  UtilityPanels(MainLoop& loop, QQmlEngine& engine, Appearance& appearance, bool inert);

  UtilityPanel& operator[](EdgeWindow window) { return *panels_[static_cast<std::size_t>(window)]; }
  // Takes the views out of the windows, before what they show goes.
  void unload();
  // The screen has other pixels to a point.
  void scaleChanged();
  // Whether the pointer is over one of them, as far as the display server told.
  bool hasPointer() const;
  // Another window has the keyboard than before.
  std::function<void()> onKeyChange;
  // The pointer has crossed the border of a window.
  std::function<void()> onCrossing;
  // The window manager asks for a window's end, as the person told it.
  std::function<void(EdgeWindow)> onCloseAsked;

  void place(EdgeWindow window, const Rect& frame) override { (*this)[window].place(frame); }
  void show(EdgeWindow window, bool key) override;
  // The keyboard goes back from a conversation to a panel that stays.
  void hide(EdgeWindow window) override;
  void animate(EdgeWindow window, const WindowMotion& motion) override { (*this)[window].animate(motion); }
  void takeClicks(EdgeWindow window, bool takes) override { (*this)[window].takeClicks(takes && !inert_); }
  bool isKey(EdgeWindow window) const override { return panels_[static_cast<std::size_t>(window)]->isKey(); }
  bool hasDialog() const override;
  bool reducedMotion() const override { return appearance_.reducedMotion(); }

 private:
  void awaitRest();
  void rest();

  MainLoop& loop_;
  QQmlEngine& engine_;
  Appearance& appearance_;
  const bool inert_;
  std::array<std::unique_ptr<UtilityPanel>, 4> panels_;
  Timer restTimer_;
  Timer backTimer_;
};

}  // namespace ostrel

// A desktop for `EdgeState` that is nothing but notes.
#pragma once

#include <map>
#include <memory>
#include <optional>

#include "Platform/EdgeWindows.h"
#include "Platform/Pointer.h"
#include "Platform/Screens.h"

namespace ostrel {

// The desktop: windows, screen and pointer.
struct FakeDesktop final : EdgeWindows, Screens, Pointer {
  void place(EdgeWindow window, const Rect& frame) override { frames[window] = frame; }
  void show(EdgeWindow window, bool takesKey) override {
    shown[window] = true;
    if (takesKey) key = window;
  }
  void hide(EdgeWindow window) override { shown[window] = false; }
  void animate(EdgeWindow, const WindowMotion& motion) override { lastMotion = motion; }
  void takeClicks(EdgeWindow, bool) override {}
  bool isKey(EdgeWindow window) const override { return key == window && shown.at(window); }
  bool hasDialog() const override { return dialog; }
  bool reducedMotion() const override { return reduced; }
  std::optional<Screen> main() const override { return screen; }
  Registration follow(Moved function) override {
    moved = std::make_shared<Moved>(std::move(function));
    return Registration([this] { moved.reset(); });
  }
  void report() {
    if (const auto keep = moved) (*keep)(pointer);
  }

  std::map<EdgeWindow, Rect> frames;
  std::map<EdgeWindow, bool> shown;
  std::optional<EdgeWindow> key;
  WindowMotion lastMotion;
  bool dialog = false, reduced = false;
  std::optional<Screen> screen = Screen{{0, 0, 1600, 900}, {0, 0, 1600, 900}};
  Point pointer;
  std::shared_ptr<Moved> moved;
};

}  // namespace ostrel

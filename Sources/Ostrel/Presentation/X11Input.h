// The pointer, clicks and modifier keys anywhere on the desktop, from the X server's raw events. They come
// over a connection of our own, whose descriptor the main loop watches; nothing is grabbed. Main thread only.
//
// Under a Wayland desktop the server tells only of what happens over X11 windows. The pointer is then looked
// for 60 times a second while somebody follows it.
#pragma once

#include <functional>
#include <memory>
#include <set>

#include "Platform/ModifierKeys.h"
#include "Platform/Pointer.h"
#include "Runtime/MainLoop.h"

struct xcb_connection_t;
struct xcb_ge_generic_event_t;

namespace ostrel {

// Tells from keys that go down and up what is held. Pure.
class ModifierTracker {
 public:
  enum class Key { control, modifier, other };
  // Whether the state is another one now. The key's code tells two Control keys apart.
  bool pressed(Key key, unsigned code);
  bool released(unsigned code);
  // A button of the mouse, say, that spoils what is held.
  bool spoiled();
  ModifierState state() const { return state_; }

 private:
  bool settle();

  std::set<unsigned> controls_;
  std::set<unsigned> modifiers_;
  bool spoiled_ = false;
  ModifierState state_ = ModifierState::none;
};

class X11Input final : public Pointer, public ModifierKeys {
 public:
  struct Ports {
    MainLoop& loop;
    std::function<Point()> pointer;  // where it is, in points
    bool wayland = false;
  };
  // Throws `Failure` where the server can't tell.
  explicit X11Input(Ports ports);
  ~X11Input() override;

  Registration follow(Moved moved) override;
  // The pointer has crossed the border of one of our windows: it may have got there without a motion, where
  // a program has put it.
  void crossed() { moved(); }
  Registration observe(Changed changed) override;
  // Tells of each button that goes down, whichever window is below. There is one observer at a time.
  Registration observeClicks(std::function<void(Point)> clicked);

 private:
  static constexpr Duration kFrame = std::chrono::microseconds(16'667);

  void select();
  void read();
  void handle(const xcb_ge_generic_event_t& event);
  void readKeys();
  void moved();
  void look();
  void changed(bool is);

  Ports ports_;
  std::unique_ptr<xcb_connection_t, void (*)(xcb_connection_t*)> connection_;
  unsigned root_ = 0;
  unsigned opcode_ = 0;
  unsigned selected_ = 0;  // the events that the server tells us of
  std::shared_ptr<Moved> moved_;
  std::shared_ptr<Changed> changed_;
  std::function<void(Point)> clicked_;
  std::optional<Point> last_;
  TimePoint nextLook_{};
  std::set<unsigned> controls_;
  std::set<unsigned> modifiers_;
  ModifierTracker tracker_;
  Timer lookTimer_;
  Timer readTimer_;
  Watch watch_;
};

}  // namespace ostrel

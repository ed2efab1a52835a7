// A value that tells its observers when it changes. Main thread only.
//
// Assigning an equal value does nothing, so an unchanged list causes no work above. Observers run inside
// `set`, in the order in which they subscribed; one that subscribes during a notification first hears of the
// next change, and one that is reset during it hears nothing more. An observer may set the value again (the
// others then hear twice) or destroy it. Views don't observe directly: they go through a `Throttle`.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "Runtime/MainLoop.h"
#include "Runtime/Registration.h"

namespace ostrel {

// The bare signal behind `Published`: "something changed", without a value. Subscriptions may outlive it.
class ChangeSignal {
 public:
  using Observer = std::move_only_function<void()>;

  Subscription observe(Observer observer) const;
  void notify();

 private:
  struct Slot {
    Observer observer;
    bool live = true;
  };
  struct Slots {
    std::vector<std::shared_ptr<Slot>> list;
    int notifying = 0;  // entries are removed only when nobody walks the list
    void removeDead();
  };
  std::shared_ptr<Slots> slots_ = std::make_shared<Slots>();
};

template <class T>
class Published {
 public:
  Published() = default;
  explicit Published(T initial) : value_(std::move(initial)) {}
  Published(const Published&) = delete;
  Published& operator=(const Published&) = delete;

  const T& get() const { return value_; }
  const T& operator*() const { return value_; }
  const T* operator->() const { return &value_; }

  // True when the value differed and was replaced.
  bool set(T value) {
    if (value == value_) return false;
    value_ = std::move(value);
    changes_.notify();
    return true;
  }
  Subscription observe(ChangeSignal::Observer observer) const {
    return changes_.observe(std::move(observer));
  }

 private:
  T value_{};
  ChangeSignal changes_;
};

// Collapses bursts: `work` runs at most once an `interval`, the last request of a burst always being served.
// The first request after a quiet interval is served on the loop's next turn. `work` may destroy the
// throttle.
class Throttle {
 public:
  Throttle(MainLoop& loop, Duration interval, MainLoop::Work work);
  Throttle(const Throttle&) = delete;
  Throttle& operator=(const Throttle&) = delete;
  void request();

 private:
  void run();

  MainLoop& loop_;
  Duration interval_;
  std::shared_ptr<MainLoop::Work> work_;
  Timer timer_;                        // set while a request waits
  TimePoint next_ = TimePoint::min();  // the earliest instant of the next run
};

}  // namespace ostrel

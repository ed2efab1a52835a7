// The timers of a loop in the order in which they fall due. Both loops keep theirs here. Main thread only.
#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

#include "Runtime/MainLoop.h"

namespace ostrel {

class TimerQueue {
 public:
  // Equal instants are told apart by the order of making.
  struct Key {
    TimePoint due;
    std::uint64_t number = 0;
    auto operator<=>(const Key&) const = default;
  };

  // `delay` from `now`; a sum beyond the range of the clock means its end.
  Key add(TimePoint now, Duration delay, MainLoop::Work work) {
    if (delay < Duration::zero()) delay = Duration::zero();
    const TimePoint due = delay < TimePoint::max() - now ? now + delay : TimePoint::max();
    const Key key{due, ++made_};
    timers_.emplace(key, std::move(work));
    return key;
  }

  // The work is destroyed after it has left the queue: its captures may make and cancel timers.
  void cancel(const Key& key) { const auto gone = timers_.extract(key); }

  std::optional<TimePoint> next() const {
    if (timers_.empty()) return std::nullopt;
    return timers_.begin()->first.due;
  }

  // Removes the first timer that is due at `now`; empty work when none is.
  MainLoop::Work takeDue(TimePoint now) {
    if (timers_.empty() || timers_.begin()->first.due > now) return nullptr;
    return std::move(timers_.extract(timers_.begin()).mapped());
  }

 private:
  std::map<Key, MainLoop::Work> timers_;
  std::uint64_t made_ = 0;
};

}  // namespace ostrel

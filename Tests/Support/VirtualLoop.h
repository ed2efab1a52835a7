// A main loop with a clock of its own: timers take no real time, so a test of a four-second delay takes none.
//
// Time stands still until a test moves it. `runFor` and `runUntil` jump to the next timer whenever nothing
// else is ready. Real descriptors are polled without waiting; a test that waits for another thread or process
// does so in `waitUntil`, in real time, with the clock standing still. Callbacks and conditions may run the
// loop themselves.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

#include "Runtime/MainLoop.h"
#include "Runtime/TimerQueue.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class VirtualLoop final : public MainLoop {
 public:
  // The clocks of a new loop: one hour since boot, 2026-01-02 03:04:05 UTC.
  VirtualLoop();
  ~VirtualLoop() override;

  // Serves everything that is ready or due, without moving time. Throws `std::logic_error` after a million
  // callbacks.
  void runUntilIdle();
  // Serves one callback that is ready or due; false when none is.
  bool step();
  // Lets `duration` pass, serving each timer at its own instant, then what is ready at the end.
  void runFor(Duration duration);
  // Lets time pass until `done` holds (checked after every callback) or `limit` is over; the final `done()`.
  bool runUntil(const std::function<bool()>& done, Duration limit = std::chrono::hours(1));
  // Moves the clocks at once, as over a machine's sleep; timers that fell due run at the next `run...`.
  void advance(Duration duration);
  // Serves what is ready until `done` holds, sleeping in real time for descriptors and posts from other
  // threads. Virtual time stands still; timers due already run. False when `limit` of real time is over.
  bool waitUntil(const std::function<bool()>& done, Duration limit = std::chrono::seconds(20));

  // Sets the wall clock (a user may), without moving `now`.
  void setWallNow(WallTime time) { wall_ = time; }
  std::optional<TimePoint> nextTimer() const { return timers_.next(); }

  TimePoint now() const override { return now_; }
  WallTime wallNow() const override { return wall_; }
  void post(Work work) override;
  Timer after(Duration delay, Work work) override;
  Watch watch(int fd, Interest interest, Ready ready) override;

 private:
  struct Watched {
    int fd;
    Interest asked;
    Ready ready;
  };

  bool servePosted(const std::function<bool()>& done);
  bool serveWatches(int milliseconds, const std::function<bool()>& done);
  bool serveTimer();
  bool serveRound(const std::function<bool()>& done);
  void countCallback();

  TimePoint now_;
  WallTime wall_;
  TimerQueue timers_;
  std::map<std::uint64_t, std::shared_ptr<Watched>> watches_;
  std::uint64_t nextWatch_ = 0;
  std::uint64_t served_ = 0;
  UniqueFd wake_;

  std::mutex mutex_;
  std::deque<Work> posted_;
  bool closed_ = false;
};

}  // namespace ostrel

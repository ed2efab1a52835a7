// The real main loop: epoll, with one timerfd for the next timer and one eventfd for posted work.
//
// A program's main thread makes one and calls `run`. A program with another event loop watches `descriptor`
// there and calls `dispatch` whenever it is readable. With nothing to do the thread sleeps: the timerfd is
// armed for the next timer only, and never ticks.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "Runtime/MainLoop.h"
#include "Runtime/TimerQueue.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class EpollLoop final : public MainLoop {
 public:
  // Throws `Failure` when the kernel has no descriptors left.
  EpollLoop();
  ~EpollLoop() override;

  // Serves callbacks until `stop`. Not to be called from a callback.
  void run();
  // Makes `run` return after the callback that is running; without one, the next `run` returns at once.
  void stop() { stopped_ = true; }

  // One turn that never waits: serves what is ready, and stops early after about 64 callbacks or 4 ms, so
  // that a foreign loop gets to its own work. True when a callback ran. Does nothing when called from a
  // callback.
  bool dispatch();
  // Readable whenever `dispatch` has something to do, work left over by the last turn included.
  int descriptor() const { return epoll_.get(); }

  TimePoint now() const override;
  WallTime wallNow() const override;
  void post(Work work) override;
  Timer after(Duration delay, Work work) override;
  Watch watch(int fd, Interest interest, Ready ready) override;

 private:
  struct Watched {
    int fd;
    Interest asked;
    Ready ready;
  };

  bool turn(bool wait);
  int serveWatches(int wait);
  int serveTimers();
  int servePosted();
  bool mayServe(int ran) const;
  bool workWaits();
  void settle();
  void arm();
  void unwatch(std::uint64_t id);

  UniqueFd epoll_;
  UniqueFd timer_;
  UniqueFd wake_;

  TimerQueue timers_;
  TimePoint armed_ = TimePoint::max();  // what the timerfd stands at; the maximum when it is off
  // By a number that is never used twice, so that an event of an earlier watch finds nothing.
  std::unordered_map<std::uint64_t, std::shared_ptr<Watched>> watches_;
  std::uint64_t nextWatch_;
  TimePoint turnEnd_;
  bool inTurn_ = false;
  bool stopped_ = false;

  std::mutex mutex_;
  std::deque<Work> posted_;
  bool awake_ = false;      // a turn is under way and will look at `posted_` before it ends
  bool signalled_ = false;  // the eventfd is readable
  bool closed_ = false;
};

}  // namespace ostrel

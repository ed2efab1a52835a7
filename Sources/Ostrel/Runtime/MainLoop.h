// The main loop as a port: time, work posted from anywhere, timers, descriptors.
//
// The thread that runs the loop is the main thread; all published state lives there. `EpollLoop` is the real
// loop, `VirtualLoop` (in the tests) jumps to the next timer when nothing is ready. Both keep this contract:
//  - callbacks run on the main thread, never inside the call that registered them;
//  - timers that are due at the same instant run in the order in which they were made;
//  - a callback may reset its own registration or any other; a reset callback does not run again;
//  - posted work runs in the order of posting;
//  - a callback must not throw: an exception that leaves one ends the program.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>

#include "Runtime/Registration.h"

namespace ostrel {

using Duration = std::chrono::nanoseconds;
// Time that only grows; for timers and ages.
using TimePoint = std::chrono::time_point<std::chrono::steady_clock, Duration>;
// Time of day; for what is compared with files and peers.
using WallTime = std::chrono::time_point<std::chrono::system_clock, Duration>;

// The wall time before every other: "long ago", where the sources know no better.
inline constexpr WallTime kDistantPast = WallTime::min();

// What a watched descriptor is asked about and ready for. After a hang-up or an error a read or write no
// longer blocks, so `read` and `write` (where asked for) are reported then too.
struct Interest {
  bool read = false;
  bool write = false;
  // The other end is gone, or the descriptor is in error: reported whether asked for or not. Asked for, it is
  // also reported when the peer of a socket will send no more, even with data still unread.
  bool hangup = false;
  bool operator==(const Interest&) const = default;
};

class MainLoop {
 public:
  using Work = std::move_only_function<void()>;
  using Ready = std::move_only_function<void(Interest)>;

  MainLoop() = default;
  MainLoop(const MainLoop&) = delete;
  MainLoop& operator=(const MainLoop&) = delete;
  virtual ~MainLoop() = default;

  virtual TimePoint now() const = 0;
  virtual WallTime wallNow() const = 0;

  // Runs `work` on the main thread, after what was posted before. The only call that any thread may make.
  // Work that the loop no longer comes to before it is destroyed is destroyed without having run.
  virtual void post(Work work) = 0;

  // Runs `work` once, `delay` from now (a negative delay counts as zero), unless the timer is reset first. A
  // timer that has run stays true as a registration until it is reset.
  virtual Timer after(Duration delay, Work work) = 0;

  // Runs `ready` whenever `fd` is ready for something asked for, or hung up (level-triggered). The caller
  // keeps `fd` open until the watch is reset, and reads and writes it without blocking: another callback of
  // the same turn may have emptied it. A descriptor can be watched once at a time. Throws `Failure` where the
  // kernel refuses (a regular file, a closed descriptor, a second watch).
  virtual Watch watch(int fd, Interest interest, Ready ready) = 0;
};

}  // namespace ostrel

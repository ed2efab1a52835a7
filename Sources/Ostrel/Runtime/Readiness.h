// Awaiting a descriptor on the main loop, for sockets that a task serves without a thread. Main thread only.
#pragma once

#include "Runtime/MainLoop.h"
#include "Runtime/Task.h"

namespace ostrel {

class ReadyAwaiter {
 public:
  ReadyAwaiter(int fd, Interest interest, Duration limit) : fd_(fd), interest_(interest), limit_(limit) {}
  bool await_ready() const noexcept { return false; }
  template <class P>
  void await_suspend(std::coroutine_handle<P> handle) {
    const TaskContext& context = handle.promise().context;
    if (!wait_.begin(handle, context, [this] { drop(); })) return;
    watch_ = context.loop->watch(fd_, interest_, [this](Interest) {
      watch_.reset();  // once: it would be told again until somebody reads
      ready_ = true;
      wait_.finish();
    });
    if (limit_ != Duration::max()) timer_ = context.loop->after(limit_, [this] { wait_.finish(); });
  }
  bool await_resume() {
    drop();
    wait_.check();
    return ready_;
  }

 private:
  void drop() {
    watch_.reset();
    timer_.reset();
  }

  int fd_;
  Interest interest_;
  Duration limit_;
  bool ready_ = false;
  Watch watch_;
  Timer timer_;
  Wait wait_;
};

// `co_await readiness(fd, {.read = true}, 3s)`: true when ready (or hung up), false when `limit` has passed
// (`Duration::max()`: it waits for ever). Throws `Cancelled`, and `Failure` where the kernel refuses the
// watch. The descriptor is open and watched by nobody else meanwhile.
inline ReadyAwaiter readiness(int fd, Interest interest, Duration limit) { return {fd, interest, limit}; }

}  // namespace ostrel

#include "Platform/Linux/PidfdExits.h"

#include <cerrno>
#include <memory>
#include <sys/syscall.h>
#include <unistd.h>
#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

namespace {

struct Exit {
  UniqueFd pidfd;
  std::move_only_function<void()> exited;
  Watch watch;  // after the descriptor: goes before it is closed
};

}  // namespace

Registration PidfdExits::watch(std::int32_t pid, std::move_only_function<void()> exited) {
  // glibc's own wrapper has a header that C++ can't include everywhere.
  UniqueFd pidfd(static_cast<int>(::syscall(SYS_pidfd_open, pid, 0)));
  if (!pidfd) return errno == ESRCH ? loop_.after(Duration::zero(), std::move(exited)) : Registration();
  auto exit = std::make_shared<Exit>(std::move(pidfd), std::move(exited));
  try {
    exit->watch = loop_.watch(exit->pidfd.get(), {.read = true}, [weak = std::weak_ptr(exit)](Interest) {
      const auto ended = weak.lock();
      if (!ended) return;
      ended->watch.reset();
      ended->pidfd.reset();
      ended->exited();
    });
  } catch (const Failure&) {
    return {};
  }
  return Registration([exit = std::move(exit)] { exit->watch.reset(); });
}

}  // namespace ostrel

// The signals that ask a program to end (SIGTERM, SIGINT, SIGHUP), as work of the main loop.
//
// They are blocked for the whole process from the first moment, so make this before any thread starts.
// Programs that this one starts inherit the mask: whoever starts them sets it back.
#pragma once

#include <functional>

#include "Runtime/MainLoop.h"
#include "Runtime/UniqueFd.h"

namespace ostrel {

class TerminationSignals {
 public:
  // Throws `Failure` when the kernel has no descriptors left.
  TerminationSignals();
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;

  // Calls `asked` for each such signal, also for one that came before.
  Watch watch(MainLoop& loop, std::function<void()> asked);

 private:
  UniqueFd fd_;
};

}  // namespace ostrel

// Signals to other processes, as a port. Callable from any thread.
#pragma once

#include <cstdint>

namespace ostrel {

class Signals {
 public:
  Signals() = default;
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;
  virtual ~Signals() = default;

  // Asks a process to end (SIGTERM). False when it is gone or may not be signalled.
  virtual bool terminate(std::int32_t pid) = 0;
  // Ends a process at once (SIGKILL). False likewise.
  virtual bool kill(std::int32_t pid) = 0;
};

}  // namespace ostrel

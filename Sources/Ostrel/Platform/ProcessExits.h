// Tells when a process ends, from the kernel, without polling. Main thread only.
#pragma once

#include <cstdint>
#include <functional>

#include "Runtime/Registration.h"

namespace ostrel {

class ProcessExits {
 public:
  ProcessExits() = default;
  ProcessExits(const ProcessExits&) = delete;
  ProcessExits& operator=(const ProcessExits&) = delete;
  virtual ~ProcessExits() = default;

  // Calls `exited` once when the process ends, on a later turn of the loop; at once (next turn) when it has
  // ended already. Where the kernel refuses (no descriptors left) the registration is empty and nothing is
  // called.
  virtual Registration watch(std::int32_t pid, std::move_only_function<void()> exited) = 0;
};

}  // namespace ostrel

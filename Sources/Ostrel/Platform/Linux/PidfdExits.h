// Process exits through pidfds, watched by the main loop. The real `ProcessExits`. Main thread only.
#pragma once

#include "Platform/ProcessExits.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class PidfdExits final : public ProcessExits {
 public:
  // `loop` outlives this object and every registration.
  explicit PidfdExits(MainLoop& loop) : loop_(loop) {}

  // Costs one descriptor for as long as the process lives. A zombie has ended.
  Registration watch(std::int32_t pid, std::move_only_function<void()> exited) override;

 private:
  MainLoop& loop_;
};

}  // namespace ostrel

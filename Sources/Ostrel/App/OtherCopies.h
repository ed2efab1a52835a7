// Other running copies of the program: of two that differ, the later stays (`RunningCopy` has the rule for
// those that are alike). Main thread only.
#pragma once

#include <cstdint>
#include <vector>

#include "Platform/Processes.h"
#include "Platform/Signals.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

class OtherCopies {
 public:
  // How long a copy has between being asked to end and being ended.
  static constexpr Duration patience = std::chrono::seconds(1);

  OtherCopies(Processes& processes, Signals& signals, MainLoop& loop, std::int32_t ownPid);

  // Asks the user's other copies to end, except test runs, and returns at once; those that are still there
  // after `patience` are killed. True when a copy is under a debugger: then nobody is signalled, and it is
  // this copy that must give way.
  bool quitOtherCopies();

 private:
  bool isCopy(const ProcessRow& row);
  void killRemaining(const std::vector<ProcessRow>& asked);

  Processes& processes_;
  Signals& signals_;
  MainLoop& loop_;
  std::int32_t ownPid_;
  Timer killTimer_;
};

}  // namespace ostrel

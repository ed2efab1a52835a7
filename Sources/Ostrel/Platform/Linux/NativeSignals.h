// Signals by kill(2): the real `Signals`.
#pragma once

#include "Platform/Signals.h"

namespace ostrel {

class NativeSignals final : public Signals {
 public:
  bool terminate(std::int32_t pid) override;
  bool kill(std::int32_t pid) override;
};

}  // namespace ostrel

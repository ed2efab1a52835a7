// Background work that is done at once, in the place where it was submitted: tests of rules need no threads.
#pragma once

#include <utility>

#include "Runtime/Background.h"

namespace ostrel {

class InlineBackground final : public Background {
 public:
  void submit(Job job) override { job(); }
};

}  // namespace ostrel

// Serves the program's main loop inside Qt's. Main thread only.
#pragma once

#include <QSocketNotifier>

#include "Runtime/EpollLoop.h"

namespace ostrel {

class NestedLoop {
 public:
  // From here on `loop` is served whenever Qt's loop runs. `loop` must outlive this.
  explicit NestedLoop(EpollLoop& loop);

 private:
  EpollLoop& loop_;
  QSocketNotifier notifier_;
};

}  // namespace ostrel

#include "NestedLoop.h"

namespace ostrel {

NestedLoop::NestedLoop(EpollLoop& loop) : loop_(loop), notifier_(loop.descriptor(), QSocketNotifier::Read) {
  QObject::connect(&notifier_, &QSocketNotifier::activated, &notifier_, [this] {
    // A callback may run a nested loop of Qt's (a dialog), which would find the descriptor readable for ever.
    notifier_.setEnabled(false);
    loop_.dispatch();
    notifier_.setEnabled(true);
  });
}

}  // namespace ostrel

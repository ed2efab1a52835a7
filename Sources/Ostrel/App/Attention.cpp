#include "App/Attention.h"

#include <algorithm>
#include <utility>

namespace ostrel {

void Attention::follow(std::set<std::string> waiting) {
  const bool another = !std::ranges::includes(waiting_, waiting);
  waiting_ = std::move(waiting);
  if (waiting_.empty()) {
    end_.reset();
    breathing_.set(false);
  } else if (another) {
    end_ = loop_.after(kBreathes, [this] { breathing_.set(false); });
    breathing_.set(true);
  }
}

}  // namespace ostrel

// Waiting in real time for what another process does.
#pragma once

#include <chrono>
#include <thread>

namespace ostrel {

// True once `condition` holds; false after half a minute, which is long on a loaded machine too.
bool eventually(const auto& condition) {
  using namespace std::chrono_literals;
  for (const auto end = std::chrono::steady_clock::now() + 30s; !condition();) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(5ms);
  }
  return true;
}

}  // namespace ostrel

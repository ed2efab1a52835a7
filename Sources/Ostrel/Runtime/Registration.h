// A handle that keeps something registered (a timer, a watch, a subscription) for as long as it lives.
//
// Used by every owner of callbacks. A registration belongs to the main thread: it is made, moved and
// destroyed there. What it refers to (the loop, the watcher) must outlive it.
#pragma once

#include <functional>
#include <utility>

namespace ostrel {

class [[nodiscard]] Registration {
 public:
  Registration() = default;
  explicit Registration(std::move_only_function<void()> release) : release_(std::move(release)) {}
  Registration(Registration&& other) noexcept : release_(std::exchange(other.release_, nullptr)) {}
  Registration& operator=(Registration&& other) noexcept {
    if (this != &other) {
      reset();
      release_ = std::exchange(other.release_, nullptr);
    }
    return *this;
  }
  ~Registration() { reset(); }

  // Ends the registration now; its callback does not run afterwards. Harmless when empty.
  void reset() {
    if (auto release = std::exchange(release_, nullptr)) release();
  }
  explicit operator bool() const { return static_cast<bool>(release_); }

 private:
  std::move_only_function<void()> release_;
};

using Timer = Registration;
using Watch = Registration;
using Subscription = Registration;

}  // namespace ostrel

// The modifier keys wherever they are pressed, as a port. Main thread only.
#pragma once

#include <functional>

#include "Runtime/Registration.h"

namespace ostrel {

// What is held at present.
enum class ModifierState { none, controlAlone, other };

class ModifierKeys {
 public:
  using Changed = std::move_only_function<void(ModifierState)>;

  ModifierKeys() = default;
  ModifierKeys(const ModifierKeys&) = delete;
  ModifierKeys& operator=(const ModifierKeys&) = delete;
  virtual ~ModifierKeys() = default;

  // Tells of every change of the modifier keys, whichever program has the keyboard, for as long as the
  // desktop lets us see it. Any other key or button that goes down counts as a change to `other`: Control
  // with a letter is no tap. An empty registration where nothing can be seen.
  virtual Registration observe(Changed changed) = 0;
};

}  // namespace ostrel

// The program behind `ostrelctl hook`: turns Claude Code's permission hook on and off, and says how it
// stands.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "Claude/ClaudePermissions.h"
#include "Options.h"

namespace ostrel::console {

struct HookOutput {
  std::function<void(std::string_view)> print;     // to standard output, whole lines
  std::function<void(std::string_view)> complain;  // one line for the person, on standard error
};

// The exit status. "status": 0 where the hook stands and works, else 1. "on" and "off": 0 where that was done
// and is remembered, else 1.
int runHookCommand(ClaudePermissions& permissions, Options::Hook action, const HookOutput& output);

}  // namespace ostrel::console

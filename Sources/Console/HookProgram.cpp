#include "HookProgram.h"

#include <fmt/format.h>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel::console {

int runHookCommand(ClaudePermissions& permissions, Options::Hook action, const HookOutput& output) {
  try {
    if (action != Options::Hook::status) permissions.setEnabled(action == Options::Hook::on);
  } catch (const Failure& failure) {
    output.complain(text::escapeControls(failure.message()));
    return 1;
  }
  permissions.seen(permissions.look());
  const ClaudeHookState& state = *permissions.state();
  const std::string file = permissions.settingsURL().string();
  std::string words = "The permission hook is turned off.";
  if (state.stands)
    words = fmt::format("The permission hook stands in {}, and runs {}.", file,
                        state.program.empty() ? "another program" : state.program);
  else if (state.wanted)
    words = fmt::format("The permission hook does not stand in {}.", file);
  output.print(text::escapeControls(words) + "\n");
  if (!state.problem.empty()) output.complain(text::escapeControls(state.problem));
  if (action == Options::Hook::off) return state.stands ? 1 : 0;
  return state.stands && state.problem.empty() ? 0 : 1;
}

}  // namespace ostrel::console

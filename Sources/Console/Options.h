// The command line of `ostrelctl`.
#pragma once

#include <chrono>
#include <expected>
#include <span>
#include <string>
#include <string_view>

namespace ostrel::console {

struct Options {
  enum class Command { agents, watch, serve, hook, help, version };
  enum class Hook { on, off, status };
  Command command = Command::help;
  bool json = false;
  // `agents`: how long the first scan may take.
  std::chrono::milliseconds wait = std::chrono::seconds(10);
  Hook hook = Hook::status;
  bool operator==(const Options&) const = default;
};

inline constexpr std::string_view kUsage =
    "usage: ostrelctl agents [--json] [--wait SECONDS]\n"
    "       ostrelctl watch [--json]\n"
    "       ostrelctl serve\n"
    "       ostrelctl hook on | off | status\n"
    "       ostrelctl --help | --version\n"
    "\n"
    "  agents   print the agents that run now, one a line:\n"
    "           id, provider, state, light, title, context\n"
    "  watch    print the list again whenever it changes, until interrupted\n"
    "  serve    a front end for programs: JSON lines of events out, of operations in\n"
    "  hook     whether Claude Code's permission prompts are shown here too: \"off\" takes\n"
    "           the hook out of its settings for good, \"on\" puts it in again, \"status\" says\n"
    "           how it stands (exit status 0: it stands and works)\n"
    "\n"
    "  --json           one JSON object a line: {\"agents\":[...]}\n"
    "  --wait SECONDS   give up when the first scan takes longer (default 10)\n";

// The words after the program's name; the error is one line that says what is wrong with them.
std::expected<Options, std::string> parseOptions(std::span<const std::string> words);

}  // namespace ostrel::console

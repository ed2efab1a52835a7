#include "App/TerminalLauncher.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>

#include "Runtime/Files.h"

namespace ostrel {

namespace {

std::string quoted(std::string_view text) {
  std::string result = "'";
  for (const char c : text) {
    if (c == '\'') {
      result += "'\\''";
    } else {
      result += c;
    }
  }
  return result + "'";
}

}  // namespace

TerminalLauncher::TerminalLauncher(Background& pool, const CommandLineTools& tools, TerminalOpener& opener,
                                   std::filesystem::path folder)
    : pool_(pool), tools_(tools), opener_(opener), folder_(std::move(folder)) {}

std::string TerminalLauncher::script(std::string_view command, std::string_view searchPath) {
  return fmt::format(
      "#!/bin/sh\n"
      "export PATH={}\n"
      "{}\n"
      "printf '\\nPress Return to close this tab…\\n'\n"
      "read -r _\n",
      quoted(searchPath), command);
}

Task<void> TerminalLauncher::openTerminal(std::string command, std::string name) {
  std::ranges::replace(name, '/', '-');
  try {
    co_await pool_.run([path = folder_ / ("launch-" + name + ".command"),
                        text = script(command, tools_.searchPath()), &opener = opener_](std::stop_token) {
      files::replace(path, text, 0700);
      opener.open(path);
    });
  } catch (const Failure& failure) {
    throw Failure("Could not open Terminal: " + failure.message());
  }
}

}  // namespace ostrel

// Opens a command in the person's terminal, where it can ask them something: a sign-in, a host key. Main
// thread only.
#pragma once

#include <filesystem>
#include <string>

#include "Discovery/CommandLineTools.h"
#include "Platform/Openers.h"
#include "Runtime/Background.h"
#include "Runtime/Task.h"

namespace ostrel {

class TerminalLauncher {
 public:
  // `folder` is where the launch scripts go, made at need: "ostrel" among the person's data.
  TerminalLauncher(Background& pool, const CommandLineTools& tools, TerminalOpener& opener,
                   std::filesystem::path folder);

  // Writes the script of that name and opens it. `command` is a line for a POSIX shell; the search path is
  // the one that our own tools get. Throws `Failure`, worded "Could not open Terminal: ...".
  Task<void> openTerminal(std::string command, std::string name);

  // The script: runs the command, then waits for Return, so that its words can be read. Pure.
  static std::string script(std::string_view command, std::string_view searchPath);

 private:
  Background& pool_;
  const CommandLineTools& tools_;
  TerminalOpener& opener_;
  std::filesystem::path folder_;
};

}  // namespace ostrel

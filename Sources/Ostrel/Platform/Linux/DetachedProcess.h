// Starts a program that lives on without us: another process, in a session of its own, that somebody else
// waits for. Any thread; blocks until the program runs.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace ostrel {

struct DetachedProcess {
  // `command` begins with the program's path. It gets exactly `environment`, nothing on its standard input,
  // no output, no descriptor of ours, and no signal blocked or ignored. Throws `Failure` when it can't be
  // started.
  static void start(std::vector<std::string> command, const std::map<std::string, std::string>& environment);
};

}  // namespace ostrel

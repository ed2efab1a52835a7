// Runs a command-line tool to its end, with a time limit and a limit of output. No shell is involved. Blocks:
// background work only.
#pragma once

#include <chrono>
#include <cstddef>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include "Runtime/MainLoop.h"
#include "Runtime/Spawn.h"

namespace ostrel {

class Subprocess {
 public:
  enum class End { exited, timedOut, outputTooLong };
  struct Result {
    End end = End::exited;
    int status = -1;     // the exit status; 128 and the signal's number when one ended it
    std::string output;  // standard output and, where it is joined, standard error, as they came
    bool succeeded() const { return end == End::exited && status == 0; }
  };

  // `executable` is a path; `arguments` lack the program's own name. The child gets exactly `environment`,
  // nothing on its standard input, a process group of its own, and no signal blocked or ignored. When `limit`
  // passes, the output exceeds `outputLimit` (bytes) or `stop` fires, its group is ended: first asked
  // (SIGTERM), half a second later killed. The output ends with the child: what its own background children
  // write later is not waited for. Throws `Failure` when it can't be started, `Cancelled` when `stop` fires.
  static Result run(const std::string& executable, const std::vector<std::string>& arguments,
                    const std::map<std::string, std::string>& environment, Duration limit,
                    std::size_t outputLimit, std::stop_token stop = {},
                    SpawnErrors errors = SpawnErrors::joined);
};

}  // namespace ostrel

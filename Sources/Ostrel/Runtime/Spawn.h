// Starts a child process: what `Subprocess` and the platform's launchers share. Any thread.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ostrel {

enum class SpawnGroup {
  process,  // a process group of its own, to be signalled as one
  session,  // a session of its own, which the end of our terminal does not reach
};

// `executable` is a path; `arguments` lack the program's own name. The child gets exactly `environment`,
// nothing on its standard input, and no signal blocked or ignored. Both its outputs go to the descriptor
// `output`, or nowhere when that is negative. The caller waits for it. Throws `Failure` when it can't be
// started.
pid_t spawn(const std::string& executable, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, int output, SpawnGroup group);

}  // namespace ostrel

// Starts a child process: what `Subprocess` and the platform's launchers share. Any thread.
#pragma once

#include <map>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ostrel {

// A command and an environment as exec wants them.
class ExecWords {
 public:
  // `command` begins with the program's path.
  ExecWords(std::vector<std::string> command, const std::map<std::string, std::string>& environment);
  ExecWords(const ExecWords&) = delete;
  ExecWords& operator=(const ExecWords&) = delete;

  const char* path() const { return command_.front().c_str(); }
  // Arrays that end with a null pointer, for as long as this object lives.
  char* const* command() const { return commandPointers_.data(); }
  char* const* environment() const { return environmentPointers_.data(); }

 private:
  std::vector<std::string> command_, environment_;
  std::vector<char*> commandPointers_, environmentPointers_;
};

enum class SpawnGroup {
  process,  // a process group of its own, to be signalled as one
  session,  // a session of its own, which the end of our terminal does not reach
};

// What becomes of standard error: put where standard output goes, or nowhere.
enum class SpawnErrors { joined, dropped };

// `executable` is a path; `arguments` lack the program's own name. The child gets exactly `environment`,
// nothing on its standard input, and no signal blocked or ignored. Both its outputs go to the descriptor
// `output`, or nowhere when that is negative; standard error goes nowhere where it is to be `dropped`. The
// caller waits for it. Throws `Failure` when it can't be started.
pid_t spawn(const std::string& executable, const std::vector<std::string>& arguments,
            const std::map<std::string, std::string>& environment, int output, SpawnGroup group,
            SpawnErrors errors = SpawnErrors::joined);

// Puts right what a program may have inherited from a careless parent, and ignores SIGPIPE. To be called
// first in `main`: where the ends of children are ignored, nobody can learn how a tool ended.
void resetSignals();

}  // namespace ostrel

// A program that a test starts: its output is read, it is ended by its own process id.
#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

#include "Runtime/UniqueFd.h"

namespace ostrel {

class ChildProcess {
 public:
  using Variables = std::map<std::string, std::string>;
  struct Finished {
    int status = -1;  // exit status; 128 + signal when killed
    std::string output;
    std::string errors;
  };

  // Starts `command` (its first word a path, or a name on this program's PATH) with exactly `variables`.
  // Throws on failure.
  ChildProcess(const std::vector<std::string>& command, const Variables& variables);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  // Kills it if it still runs.
  ~ChildProcess();

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // The next line of standard output without its newline; nothing at the end of the output or when `limit`
  // passes.
  std::optional<std::string> line(std::chrono::milliseconds limit);
  // Reads all the output and waits for the end; kills it after `limit`.
  Finished finish(std::chrono::milliseconds limit = std::chrono::seconds(30));

 private:
  pid_t pid_ = -1;
  UniqueFd output_;
  UniqueFd errors_;
  std::string buffer_;
};

// Starts, reads all the output, waits.
ChildProcess::Finished runCommand(const std::vector<std::string>& command,
                                  const ChildProcess::Variables& variables,
                                  std::chrono::milliseconds limit = std::chrono::seconds(30));

}  // namespace ostrel

// Which desktop application an executable belongs to: how the host of an agent is recognised among its
// ancestors.
#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ostrel {

class HostApplications {
 public:
  HostApplications() = default;
  HostApplications(const HostApplications&) = delete;
  HostApplications& operator=(const HostApplications&) = delete;
  virtual ~HostApplications() = default;

  // The path that names the host when `executable` (an absolute path) is the program of an installed
  // terminal, IDE or text editor, otherwise nothing. `arguments` are the process's own, for programs that run
  // in an interpreter. Any thread; answers from memory once the installed entries were read.
  virtual std::optional<std::string> hostOf(const std::string& executable,
                                            const std::vector<std::string>& arguments) = 0;
  // What the desktop calls the host that `hostOf` named; nothing where it has no name of its own. Any thread.
  virtual std::optional<std::string> nameOf(const std::string& /*host*/) { return std::nullopt; }
};

}  // namespace ostrel

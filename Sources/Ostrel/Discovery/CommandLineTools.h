// Finds command-line tools where people really install them, and makes the environment that child processes
// get: a program started from a desktop inherits a thin search path. Pure but for `find`, which looks at
// files; any thread.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Environment.h"

namespace ostrel {

class CommandLineTools {
 public:
  // `environment` is copied.
  explicit CommandLineTools(const Environment& environment);

  // The first executable file `name` in the inherited PATH, then in the usual folders. Nothing means not
  // installed.
  std::optional<std::filesystem::path> find(std::string_view name) const;

  // The usual folders, then the inherited PATH, joined with ":".
  std::string searchPath() const;

  // For a child process: without the address of another Herdr session, with `searchPath`, and for a
  // `subscription` run without the API keys that would divert the agent from the person's own subscription.
  std::map<std::string, std::string> environment(bool subscription) const;

 private:
  Environment environment_;
  std::vector<std::string> folders_;
};

}  // namespace ostrel

// What the process was started with: variables, home folder, arguments. Read once by the composition root and
// passed down as a value, so that tests can make up their own.
#pragma once

#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ostrel {

struct Environment {
  std::map<std::string, std::string, std::less<>> variables;
  std::filesystem::path home;          // absolute
  std::vector<std::string> arguments;  // the program path included

  // The variable's value; nothing when it is not set. An empty value is a value.
  std::optional<std::string> variable(std::string_view name) const;

  // The variable's value where it is set and not empty, else `folder` in the home folder.
  std::filesystem::path folder(std::string_view variable, std::string_view folder) const;

  bool hasArgument(std::string_view exact) const;

  // Claude Code's own folder: CLAUDE_CONFIG_DIR, else ~/.claude.
  std::filesystem::path claudeFolder() const { return folder("CLAUDE_CONFIG_DIR", ".claude"); }
  // Codex's own folder: CODEX_HOME, else ~/.codex.
  std::filesystem::path codexFolder() const { return folder("CODEX_HOME", ".codex"); }

  // Of the running program. The home folder is $HOME, else the user database's.
  static Environment ofProcess(int argc, char** argv);
};

}  // namespace ostrel

// The desktop's own ways of opening an address and a terminal: the real `UrlOpener` and `TerminalOpener`.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Environment.h"
#include "Platform/Openers.h"

namespace ostrel {

// What other programs of the desktop are found by and started with. `searchPath` are folders joined with ":".
struct DesktopPlace {
  Environment environment;
  std::string searchPath;

  // The path of an executable file; of a name without "/", the first one in the search path.
  std::optional<std::string> program(std::string_view name) const;
  // What a program of the desktop is started with: the person's environment, as it came.
  std::map<std::string, std::string> variables() const;
};

class DesktopUrls final : public UrlOpener {
 public:
  explicit DesktopUrls(DesktopPlace place) : place_(std::move(place)) {}
  void open(const std::string& url) override;

 private:
  DesktopPlace place_;
};

class DesktopTerminals final : public TerminalOpener {
 public:
  // `dataFolders` hold the installed desktop entries, in "applications".
  DesktopTerminals(DesktopPlace place, std::vector<std::filesystem::path> dataFolders);

  void open(const std::filesystem::path& script) override;

  // The command line that runs `script` in the person's terminal: by xdg-terminal-exec, which knows their
  // choice; else by $TERMINAL, the distribution's x-terminal-emulator, or the first installed terminal that
  // is there. Empty when there is none. Blocks.
  std::vector<std::string> command(const std::filesystem::path& script) const;

 private:
  std::vector<std::string> installed() const;

  DesktopPlace place_;
  std::vector<std::filesystem::path> dataFolders_;
};

}  // namespace ostrel

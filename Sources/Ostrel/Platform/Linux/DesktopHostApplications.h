// Host applications from the installed desktop entries (freedesktop.org's Desktop Entry format): terminals,
// IDEs and text editors. The real `HostApplications`.
#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Environment.h"
#include "Platform/HostApplications.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// What a desktop entry says about a program that can host agents. Pure.
struct DesktopEntry {
  // The command line's program as it stands, `env` and its assignments left out; nothing when the entry is no
  // graphical terminal, IDE or text editor, is hidden, or starts through a shell.
  static std::optional<std::string> hostProgram(std::string_view bytes);
  // What it is called on the desktop, without regard to languages.
  static std::optional<std::string> name(std::string_view bytes);
  // The same as `hostProgram`, of a terminal alone.
  static std::optional<std::string> terminalProgram(std::string_view bytes);
};

class DesktopHostApplications final : public HostApplications {
 public:
  // Reads "applications/" below each of `dataFolders`; programs named without a path are looked up in
  // `searchPath` (folders joined with ":"). Entries are read at first need, and again when one of the folders
  // changed, which is looked for once a minute at most.
  DesktopHostApplications(std::vector<std::filesystem::path> dataFolders, std::string searchPath);

  // The folders of XDG_DATA_HOME and XDG_DATA_DIRS.
  static std::vector<std::filesystem::path> dataFolders(const Environment& environment);

  std::optional<std::string> hostOf(const std::string& executable,
                                    const std::vector<std::string>& arguments) override;
  std::optional<std::string> nameOf(const std::string& host) override;

 private:
  using Stamp = std::vector<std::optional<WallTime>>;

  void refresh();
  Stamp stamp() const;
  void add(const std::string& program, const std::optional<std::string>& name);
  std::optional<std::string> find(const std::string& executable) const;

  const std::vector<std::filesystem::path> folders_;
  const std::vector<std::string> searchPath_;
  std::mutex lock_;
  std::optional<TimePoint> checked_;
  Stamp stamp_;
  std::map<std::string, std::string, std::less<>> programs_;  // resolved executable to the host's path
  std::map<std::string, std::string, std::less<>>
      roots_;  // folder of a whole installation, ending in "/", likewise
  std::map<std::string, std::string, std::less<>> titles_;  // what the desktop calls a host, by its path
  std::map<std::string, std::string, std::less<>> names_;   // a program's name, for its helper processes
};

}  // namespace ostrel

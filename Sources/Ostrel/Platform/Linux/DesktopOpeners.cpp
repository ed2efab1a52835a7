#include "Platform/Linux/DesktopOpeners.h"

#include <algorithm>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

#include "Platform/Linux/DesktopHostApplications.h"
#include "Platform/Linux/DetachedProcess.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestEntry = 256u << 10;  // bytes

bool isExecutableFile(const std::string& path) {
  struct stat info;
  return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) && ::access(path.c_str(), X_OK) == 0;
}

// What stands between a terminal and the command it is to run. Most take "-e"; these want another word, since
// they take "-e" as one text for a shell, or as nothing.
std::vector<std::string> beforeCommand(std::string_view terminal) {
  const std::string_view name = text::lastPathComponent(terminal);
  if (name == "gnome-terminal" || name == "ptyxis" || name == "kgx" || name == "gnome-console") return {"--"};
  if (name == "xfce4-terminal" || name == "mate-terminal" || name == "terminator") return {"-x"};
  if (name == "wezterm") return {"start", "--"};
  return {"-e"};
}

std::vector<std::string> joined(std::vector<std::string> words, const fs::path& script) {
  for (std::string& word : beforeCommand(words.front())) words.push_back(std::move(word));
  words.push_back(script.string());
  return words;
}

}  // namespace

std::optional<std::string> DesktopPlace::program(std::string_view name) const {
  if (name.starts_with('/'))
    return isExecutableFile(std::string(name)) ? std::optional(std::string(name)) : std::nullopt;
  if (name.empty() || name.find('/') != std::string_view::npos) return std::nullopt;
  for (const std::string_view folder : text::split(searchPath, ':')) {
    if (!folder.starts_with('/')) continue;
    std::string path = std::string(folder) + "/" + std::string(name);
    if (isExecutableFile(path)) return path;
  }
  return std::nullopt;
}

std::map<std::string, std::string> DesktopPlace::variables() const {
  return {environment.variables.begin(), environment.variables.end()};
}

void DesktopUrls::open(const std::string& url) {
  const auto opener = place_.program("xdg-open");
  if (!opener) throw Failure("Could not open the browser: xdg-open is not installed.");
  DetachedProcess::start({*opener, url}, place_.variables());
}

DesktopTerminals::DesktopTerminals(DesktopPlace place, std::vector<fs::path> dataFolders)
    : place_(std::move(place)), dataFolders_(std::move(dataFolders)) {}

void DesktopTerminals::open(const fs::path& script) {
  std::vector<std::string> words = command(script);
  if (words.empty()) throw Failure("No terminal program is installed.");
  DetachedProcess::start(std::move(words), place_.variables());
}

std::vector<std::string> DesktopTerminals::command(const fs::path& script) const {
  if (const auto exec = place_.program("xdg-terminal-exec")) return {*exec, script.string()};
  // The variable may hold options of the person's own.
  const std::string chosen = place_.environment.variable("TERMINAL").value_or("");
  std::vector<std::string> words;
  for (const std::string_view word : text::words(chosen)) words.emplace_back(word);
  if (!words.empty()) {
    if (auto path = place_.program(words.front())) {
      words.front() = std::move(*path);
      return joined(std::move(words), script);
    }
  }
  // Debian's alternative takes "-e" and separate words, whatever terminal lies behind it.
  if (const auto path = place_.program("x-terminal-emulator")) return {*path, "-e", script.string()};
  for (const std::string& terminal : installed()) {
    if (auto path = place_.program(terminal)) return joined({std::move(*path)}, script);
  }
  return {};
}

// The programs of the installed entries: those of the person's own folder first, each folder's by file name.
std::vector<std::string> DesktopTerminals::installed() const {
  std::vector<std::string> programs;
  for (const fs::path& folder : dataFolders_) {
    std::error_code error;
    std::vector<fs::path> entries;
    fs::directory_iterator entry(folder / "applications", fs::directory_options::skip_permission_denied,
                                 error);
    for (; !error && entry != fs::directory_iterator(); entry.increment(error)) {
      if (entry->path().extension() == ".desktop") entries.push_back(entry->path());
    }
    std::ranges::sort(entries);
    for (const fs::path& path : entries) {
      const auto bytes = files::read(path, kLargestEntry);
      if (!bytes) continue;
      if (auto program = DesktopEntry::terminalProgram(*bytes)) programs.push_back(std::move(*program));
    }
  }
  return programs;
}

}  // namespace ostrel

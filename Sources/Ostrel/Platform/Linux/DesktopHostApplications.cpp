#include "Platform/Linux/DesktopHostApplications.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

constexpr std::size_t kLargestEntry = 1u << 20;  // bytes
constexpr std::size_t kLongestName = 128;        // bytes
constexpr Duration kCheckInterval = std::chrono::minutes(1);

// The words of an Exec line: blanks separate, double quotes group, a backslash keeps the next character.
std::vector<std::string> execWords(std::string_view line) {
  std::vector<std::string> words;
  std::string word;
  bool quoted = false;
  bool any = false;
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char c = line[i];
    if (c == '\\' && i + 1 < line.size()) {
      word += line[++i];
      any = true;
    } else if (c == '"') {
      quoted = !quoted;
      any = true;
    } else if ((c == ' ' || c == '\t') && !quoted) {
      if (any) words.push_back(std::exchange(word, {}));
      any = false;
    } else {
      word += c;
      any = true;
    }
  }
  if (any) words.push_back(word);
  return words;
}

bool isShell(std::string_view name) {
  return name == "sh" || name == "bash" || name == "dash" || name == "zsh" || name == "fish";
}

bool isInterpreter(std::string_view name) {
  return name.starts_with("python") || name.starts_with("perl") || name.starts_with("ruby") ||
         name == "node" || name == "gjs" || name == "gjs-console" || name == "java";
}

std::string resolved(const fs::path& path) {
  std::error_code error;
  const fs::path real = fs::canonical(path, error);
  return error ? path.string() : real.string();
}

// The folder that belongs to one installation alone, ending in "/": that of a program outside the shared
// folders, or the one above where it lies in a "bin".
std::optional<std::string> installation(const std::string& program) {
  fs::path folder = fs::path(program).parent_path();
  if (folder.filename() == "bin") folder = folder.parent_path();
  const std::string text = folder.string();
  if (text.ends_with("-linux-gnu")) return std::nullopt;
  if (text.starts_with("/nix/store/") || text.starts_with("/opt/") || text.starts_with("/usr/share/") ||
      text.starts_with("/usr/lib/") || text.starts_with("/snap/") ||
      text.find("/.local/share/") != std::string::npos) {
    return text + "/";
  }
  return std::nullopt;
}

bool isTerminal(std::string_view category) { return category == "TerminalEmulator"; }

bool isHost(std::string_view category) {
  return isTerminal(category) || category == "IDE" || category == "TextEditor";
}

std::optional<std::string> programOf(std::string_view bytes, bool (*isWanted)(std::string_view category)) {
  bool inEntry = false;
  bool wanted = false;
  std::string exec;
  for (std::string_view line : text::split(bytes, '\n')) {
    line = text::trim(line);
    if (line.starts_with('[')) {
      inEntry = line == "[Desktop Entry]";
      continue;
    }
    const auto equals = line.find('=');
    if (!inEntry || equals == std::string_view::npos) continue;
    const std::string_view key = text::trim(line.substr(0, equals));
    const std::string_view value = text::trim(line.substr(equals + 1));
    if (key == "Exec") {
      exec = value;
    } else if (key == "Categories") {
      wanted = std::ranges::any_of(text::split(value, ';'), isWanted);
    } else if ((key == "Terminal" || key == "Hidden") && value == "true") {
      return std::nullopt;  // what runs in a terminal is hosted by that
    } else if (key == "Type" && value != "Application") {
      return std::nullopt;
    }
  }
  if (!wanted) return std::nullopt;
  std::vector<std::string> words = execWords(exec);
  auto word = words.begin();
  if (word != words.end() && text::lastPathComponent(*word) == "env") {
    while (++word != words.end() && (word->starts_with('-') || word->find('=') != std::string::npos)) {
      if (*word == "-u" && word + 1 != words.end()) ++word;
    }
  }
  if (word == words.end() || word->empty() || isShell(text::lastPathComponent(*word))) return std::nullopt;
  // An interpreter's program is its script; without one, every program that it runs would count as the host.
  if (isInterpreter(text::lastPathComponent(*word))) {
    do ++word;
    while (word != words.end() && word->starts_with('-') && *word != "-m" && *word != "-c");
    if (word == words.end() || !word->starts_with('/')) return std::nullopt;
  }
  return *word;
}

}  // namespace

std::optional<std::string> DesktopEntry::hostProgram(std::string_view bytes) {
  return programOf(bytes, isHost);
}

std::optional<std::string> DesktopEntry::name(std::string_view bytes) {
  bool inEntry = false;
  for (std::string_view line : text::split(bytes, '\n')) {
    line = text::trim(line);
    if (line.starts_with('[')) inEntry = line == "[Desktop Entry]";
    const auto equals = line.find('=');
    if (!inEntry || equals == std::string_view::npos || text::trim(line.substr(0, equals)) != "Name")
      continue;
    const std::string_view name = text::trim(line.substr(equals + 1));
    if (!name.empty()) return std::string(name.substr(0, kLongestName));
  }
  return std::nullopt;
}

std::optional<std::string> DesktopEntry::terminalProgram(std::string_view bytes) {
  return programOf(bytes, isTerminal);
}

DesktopHostApplications::DesktopHostApplications(std::vector<fs::path> dataFolders, std::string searchPath)
    : folders_(std::move(dataFolders)), searchPath_([&] {
        std::vector<std::string> places;
        for (const auto folder : text::split(searchPath, ':')) {
          if (folder.starts_with('/')) places.emplace_back(folder);
        }
        return places;
      }()) {}

std::vector<fs::path> DesktopHostApplications::dataFolders(const Environment& environment) {
  std::vector<fs::path> folders;
  const auto add = [&](std::string_view path) {
    if (path.starts_with('/')) folders.emplace_back(path);
  };
  add(environment.folder("XDG_DATA_HOME", ".local/share").string());
  const std::string shared = environment.variable("XDG_DATA_DIRS").value_or("");
  for (const auto folder : text::split(shared.empty() ? "/usr/local/share:/usr/share" : shared, ':'))
    add(folder);
  // Where a login without a desktop doesn't name them.
  add("/var/lib/snapd/desktop");
  return folders;
}

std::optional<std::string> DesktopHostApplications::hostOf(const std::string& executable,
                                                           const std::vector<std::string>& arguments) {
  if (!executable.starts_with('/')) return std::nullopt;
  const std::scoped_lock lock(lock_);
  const TimePoint now = std::chrono::steady_clock::now();
  if (!checked_ || now - *checked_ >= kCheckInterval) {
    checked_ = now;
    refresh();
  }
  if (auto host = find(executable)) return host;
  if (!isInterpreter(text::lastPathComponent(executable)) || arguments.empty()) return std::nullopt;
  const auto script = std::find_if(arguments.begin() + 1, arguments.end(),
                                   [](const std::string& word) { return !word.starts_with('-'); });
  if (script == arguments.end() || !script->starts_with('/')) return std::nullopt;
  return find(resolved(*script));
}

std::optional<std::string> DesktopHostApplications::find(const std::string& executable) const {
  if (const auto exact = programs_.find(executable); exact != programs_.end()) return exact->second;
  // Folders nest: the last one at or before the path in order is the only candidate that can hold it.
  // A Java that lies there is the application's own; any other interpreter may serve many programs.
  const std::string_view name = text::lastPathComponent(executable);
  const auto after = roots_.upper_bound(executable);
  if (after != roots_.begin() && executable.starts_with(std::prev(after)->first) &&
      (name == "java" || !isInterpreter(name)))
    return std::prev(after)->second;
  for (const std::string_view suffix : {"-server", "-agent", "-gui", "-editor"}) {
    if (!name.ends_with(suffix)) continue;
    const auto known = names_.find(text::dropSuffix(name, suffix));
    if (known != names_.end()) return known->second;
  }
  return std::nullopt;
}

std::optional<std::string> DesktopHostApplications::nameOf(const std::string& host) {
  const std::scoped_lock lock(lock_);
  const auto found = titles_.find(host);
  return found == titles_.end() ? std::nullopt : std::optional(found->second);
}

DesktopHostApplications::Stamp DesktopHostApplications::stamp() const {
  Stamp stamp;
  for (const fs::path& folder : folders_) {
    const auto status = files::status(folder / "applications");
    stamp.push_back(status ? std::optional(status->modified) : std::nullopt);
  }
  return stamp;
}

void DesktopHostApplications::refresh() {
  Stamp current = stamp();
  if (current == stamp_) return;
  stamp_ = std::move(current);
  programs_.clear();
  roots_.clear();
  names_.clear();
  titles_.clear();
  for (const fs::path& folder : folders_) {
    std::error_code error;
    fs::recursive_directory_iterator entry(folder / "applications",
                                           fs::directory_options::skip_permission_denied, error);
    for (; !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
      if (entry->path().extension() != ".desktop") continue;
      const auto bytes = files::read(entry->path(), kLargestEntry);
      if (!bytes) continue;
      if (const auto program = DesktopEntry::hostProgram(*bytes)) add(*program, DesktopEntry::name(*bytes));
    }
  }
}

void DesktopHostApplications::add(const std::string& program, const std::optional<std::string>& name) {
  std::string path = program;
  if (!path.starts_with('/')) {
    const auto found = std::ranges::find_if(searchPath_, [&](const std::string& folder) {
      return files::status(fs::path(folder) / program).has_value();
    });
    if (found == searchPath_.end()) return;  // an entry whose program is not installed
    path = (fs::path(*found) / program).string();
  }
  names_.try_emplace(std::string(text::lastPathComponent(path)), path);
  if (name) titles_.try_emplace(path, *name);
  if (path.starts_with("/snap/bin/")) {
    // Every snap starts through one program; its own files lie below /snap/<name>/.
    roots_.try_emplace("/snap/" + std::string(text::lastPathComponent(path)) + "/", path);
    return;
  }
  const std::string real = resolved(path);
  const std::string_view realName = text::lastPathComponent(real);
  if (isInterpreter(realName) || isShell(realName)) return;
  programs_.try_emplace(real, path);
  if (const auto root = installation(real)) roots_.try_emplace(*root, path);
}

}  // namespace ostrel

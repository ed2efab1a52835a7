#include "Claude/ClaudePermissions.h"

#include <cerrno>
#include <sys/stat.h>
#include <utility>

#include <fmt/format.h>

#include "Claude/ClaudeSettings.h"
#include "Claude/PermissionSocket.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"

namespace ostrel {

namespace {

namespace fs = std::filesystem;

constexpr unsigned kNewFileMode = 0600;

// The file's text; an empty optional when there is no file. Failing to read one that is there must not count
// as its absence: it would be overwritten.
std::expected<std::optional<std::string>, int> readText(const fs::path& file) {
  auto text = files::read(file);
  if (text) return *std::move(text);
  if (text.error() == ENOENT || text.error() == ENOTDIR) return std::nullopt;
  return std::unexpected(text.error());
}

unsigned modeOf(const fs::path& file) {
  struct stat info;
  return ::stat(file.c_str(), &info) == 0 ? info.st_mode & 0777 : kNewFileMode;
}

void keepBackup(const fs::path& file, const std::string& text) {
  fs::path backup = file;
  backup += ".ostrel-backup";
  struct stat info;
  if (::lstat(backup.c_str(), &info) == 0) return;
  try {
    files::replace(backup, text, modeOf(file));
  } catch (const Failure&) {
    // The edit is wanted all the same.
  }
}

}  // namespace

ClaudePermissions::ClaudePermissions(Environment environment, fs::path executable, Preferences& preferences,
                                     Capture capture)
    : environment_(std::move(environment)),
      executable_(std::move(executable)),
      preferences_(preferences),
      capture_(std::move(capture)) {}

std::string ClaudePermissions::socketPath(const Environment& environment,
                                          std::optional<std::int32_t> fixturePid) {
  const auto chosen = environment.variable(permissionSocket::kVariable);
  const auto dataHome = environment.variable("XDG_DATA_HOME");
  const auto path =
      permissionSocket::path(chosen ? chosen->c_str() : nullptr, dataHome ? dataHome->c_str() : nullptr,
                             environment.home.c_str(), static_cast<unsigned>(fixturePid.value_or(0)));
  if (!path.usable()) return {};
  if (!chosen) {
    try {
      files::makeFolders(fs::path(path.text).parent_path());
    } catch (const Failure&) {
      // The server stays off.
    }
  }
  return path.text;
}

fs::path ClaudePermissions::settingsURL() const {
  // As Claude Code has it, an empty value is a folder too.
  const auto folder = environment_.variable("CLAUDE_CONFIG_DIR");
  return (folder ? fs::path(*folder) : environment_.home / ".claude") / "settings.json";
}

std::string ClaudePermissions::hookCommand() const {
  std::string quoted;
  for (const char c : executable_.string()) {
    if (c == '\'') {
      quoted += R"('\'')";
    } else {
      quoted += c;
    }
  }
  return fmt::format("test -x '{0}' && exec '{0}' --permission-hook || exit 0", quoted);
}

bool ClaudePermissions::isInstalled() const {
  const auto settings = readSettings();
  return settings && claudeSettings::hasOurHook(*settings);
}

std::optional<Json> ClaudePermissions::readSettings() const {
  const auto text = readText(settingsURL());
  if (!text) return std::nullopt;
  return *text ? claudeSettings::parse(**text) : Json::object();
}

void ClaudePermissions::setInstalled(bool on) {
  const fs::path file = settingsURL();
  const auto text = readText(file);
  const std::string before = text ? text->value_or("{}\n") : "";
  const auto after = claudeSettings::editText(before, on, hookCommand());
  if (!after) throw Failure("Claude Code's settings.json couldn't be read, so it wasn't changed.");
  if (*after == before) return;
  if (*text) keepBackup(file, before);
  files::replace(file, *after, modeOf(file));
}

void ClaudePermissions::setEnabled(bool on) {
  setInstalled(on);
  if (capture_) capture_("setting_changed", {{"setting", "claude_prompts"}, {"on", on}});
  preferences_.set(kOffKey, !on);
}

void ClaudePermissions::installAtLaunch() {
  if (preferences_.boolean(kOffKey)) return;
  const auto settings = readSettings();
  if (settings && claudeSettings::hasCommand(*settings, hookCommand())) return;
  try {
    setInstalled(true);
  } catch (const Failure&) {
    // Nobody asked for it: the prompts stay in the terminal.
  }
}

}  // namespace ostrel

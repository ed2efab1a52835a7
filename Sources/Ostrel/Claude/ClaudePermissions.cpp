#include "Claude/ClaudePermissions.h"

#include <cerrno>
#include <sys/stat.h>
#include <unistd.h>
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
constexpr char kUnreadable[] = "Claude Code's settings.json couldn't be read, so it wasn't changed.";

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

// Whether a file that is there is not to be changed. Its mode tells even where we could replace it in spite
// of that: as root, or in a folder of ours.
bool isReadOnly(const fs::path& file) {
  struct stat info;
  if (::stat(file.c_str(), &info) != 0) return false;
  const bool locked = info.st_uid == ::geteuid() && (info.st_mode & S_IWUSR) == 0;
  return locked || ::access(file.c_str(), W_OK) != 0;
}

// The program that a hook's command of ours runs: the first word in quotes.
std::string programOf(std::string_view command) {
  std::string program;
  for (auto at = command.find('\''); at != std::string_view::npos;) {
    const auto end = command.find('\'', at + 1);
    if (end == std::string_view::npos) return {};
    program += command.substr(at + 1, end - at - 1);
    if (!command.substr(end + 1).starts_with("\\''")) return program;
    program += '\'';
    at = end + 3;
  }
  return {};
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

bool ClaudePermissions::isInstalled() const { return look().stands; }

ClaudePermissions::Entry ClaudePermissions::look() const {
  const auto text = readText(settingsURL());
  std::optional<Json> settings;
  if (text) settings = *text ? claudeSettings::parse(**text) : Json::object();
  Entry entry;
  entry.hindrance = hindrance(settings);
  const auto command = settings ? claudeSettings::ourCommand(*settings) : std::nullopt;
  entry.stands = command.has_value();
  if (command) entry.program = programOf(*command);
  entry.programThere = files::isExecutable(entry.program);
  return entry;
}

// Why the hook can't be put into these settings (nothing: they could not be read).
std::string ClaudePermissions::hindrance(const std::optional<Json>& settings) const {
  const std::string file = settingsURL().string();
  if (!settings) return kUnreadable;
  if (const auto kind = claudeSettings::wrongKind(*settings))
    return fmt::format("{} wasn't changed: {} in it.", file, *kind);
  if (isReadOnly(file)) return fmt::format("{} is read-only, so it wasn't changed.", file);
  if (!executable_.is_absolute())
    return "Where this program lies can't be told (/proc can't be read), so no hook can name it.";
  return {};
}

void ClaudePermissions::setInstalled(bool on) { edit(on, claudeSettings::kEvents); }

void ClaudePermissions::edit(bool on, std::span<const claudeSettings::Event> events) {
  const fs::path file = settingsURL();
  const auto text = readText(file);
  const std::string before = text ? text->value_or("{}\n") : "";
  const auto settings = text ? claudeSettings::parse(before) : std::nullopt;
  const auto after = claudeSettings::editText(before, on, hookCommand(), events);
  if (!settings || !after) throw Failure(kUnreadable);
  if (*after == before && (!on || !claudeSettings::wrongKind(*settings))) return;
  if (const std::string words = hindrance(settings); !words.empty() && (on || isReadOnly(file)))
    throw Failure(words);
  if (*text) keepBackup(file, before);
  files::replace(file, *after, modeOf(file));
}

void ClaudePermissions::setEnabled(bool on) {
  setInstalled(on);
  if (capture_) capture_("setting_changed", {{"setting", "claude_prompts"}, {"on", on}});
  preferences_.set(kOffKey, !on);
  seen(look());
}

void ClaudePermissions::installAtLaunch() {
  Entry entry;
  try {
    if (!preferences_.boolean(kOffKey)) complete();
    entry = look();
  } catch (const Failure& failure) {
    // Nobody asked for it: the prompts stay in the terminal.
    entry = look();
    if (entry.hindrance.empty()) entry.hindrance = failure.message();
  }
  seen(entry);
}

// An event with a hook that runs this very program stays as it is, also where another group stands beside it.
void ClaudePermissions::complete() {
  const auto text = readText(settingsURL());
  const auto settings = text && *text ? claudeSettings::parse(**text) : std::nullopt;
  if (!settings || claudeSettings::wrongKind(*settings)) return setInstalled(true);
  const auto missing = claudeSettings::missing(*settings, hookCommand());
  if (!missing.empty()) edit(true, missing);
}

void ClaudePermissions::seen(const Entry& entry) {
  ClaudeHookState state{!preferences_.boolean(kOffKey), entry.stands, entry.program, {}};
  state.problem = problem(state, entry);
  stood_ = state.wanted && (stood_ || entry.stands);
  state_.set(std::move(state));
}

std::string ClaudePermissions::problem(const ClaudeHookState& state, const Entry& entry) const {
  constexpr char kEffect[] = "Claude Code's prompts stay in their terminals.";
  const std::string file = settingsURL().string();
  if (!state.wanted)
    return state.stands ? fmt::format("The permission hook is turned off, but {} still names it.", file) : "";
  if (state.stands) {
    if (state.program.empty() || entry.programThere) return {};
    return fmt::format("The permission hook in {} names {}, which is not there. {}", file, state.program,
                       kEffect);
  }
  if (!entry.hindrance.empty())
    return fmt::format("The permission hook could not be put in. {} {}", entry.hindrance, kEffect);
  if (!stood_) return fmt::format("The permission hook is not in {}. {}", file, kEffect);
  return fmt::format(
      "Another program took the permission hook out of {}. {} \"ostrelctl hook on\" puts it in again.", file,
      kEffect);
}

}  // namespace ostrel

#include "Discovery/CommandLineTools.h"

#include <algorithm>
#include <set>

#include <fmt/ranges.h>

#include "Runtime/Files.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kRemovedForSubscription[] = {
    "OPENAI_API_KEY",
    "CODEX_API_KEY",
    "ANTHROPIC_API_KEY",
    "ANTHROPIC_AUTH_TOKEN",
    "ANTHROPIC_BASE_URL",
    "OPENAI_BASE_URL",
    "CLAUDE_CODE_OAUTH_TOKEN",
    "CLAUDE_CODE_USE_BEDROCK",
    "CLAUDE_CODE_USE_VERTEX",
    "CLAUDE_CODE_USE_FOUNDRY",
    "CLAUDECODE",
};

}  // namespace

CommandLineTools::CommandLineTools(const Environment& environment)
    : environment_(environment),
      folders_{(environment.home / ".local/bin").string(),
               (environment.home / "bin").string(),
               (environment.home / ".cargo/bin").string(),
               (environment.home / ".npm-global/bin").string(),
               (environment.home / ".linuxbrew/bin").string(),
               "/home/linuxbrew/.linuxbrew/bin",
               "/usr/local/bin",
               "/usr/bin",
               "/bin",
               "/snap/bin"} {}

std::optional<std::filesystem::path> CommandLineTools::find(std::string_view name) const {
  const std::string inherited = environment_.variable("PATH").value_or("");
  std::vector<std::string> places;
  for (const std::string_view folder : text::split(inherited, ':')) places.emplace_back(folder);
  places.insert(places.end(), folders_.begin(), folders_.end());
  std::set<std::string> seen;
  for (const std::string& folder : places) {
    if (!folder.starts_with('/') || !seen.insert(folder).second) continue;
    std::string path = folder + "/" + std::string(name);
    if (files::isExecutable(path)) return path;
  }
  return std::nullopt;
}

std::string CommandLineTools::searchPath() const {
  return fmt::format("{}:{}", fmt::join(folders_, ":"), environment_.variable("PATH").value_or("/bin"));
}

std::map<std::string, std::string> CommandLineTools::environment(bool subscription) const {
  std::map<std::string, std::string> result(environment_.variables.begin(), environment_.variables.end());
  std::erase_if(result, [](const auto& pair) { return pair.first.starts_with("HERDR_"); });
  if (subscription) {
    for (const std::string_view name : kRemovedForSubscription) result.erase(std::string(name));
  }
  result["PATH"] = searchPath();
  return result;
}

}  // namespace ostrel

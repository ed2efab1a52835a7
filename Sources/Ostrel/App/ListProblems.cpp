#include "App/ListProblems.h"

#include <algorithm>
#include <optional>

namespace ostrel {

std::vector<std::string> listProblems(HerdrClient& client) {
  std::vector<std::string> problems;
  const auto add = [&](const std::optional<std::string>& words) {
    if (words && !words->empty() && std::ranges::find(problems, *words) == problems.end())
      problems.push_back(*words);
  };
  add(*client.local().error());
  add(*client.link().error());
  // That no server of Codex runs is how it mostly is, and hides nobody: its agents are found as processes.
  for (const auto& words : {*client.codexDiscovery().error(), *client.codexRequests().error()}) {
    if (words && !words->ends_with("The local Codex server is unavailable.")) add(words);
  }
  if (*client.permissions().taken())
    add("Claude Code's prompts go to another program of Ostrel that runs (ostrelctl serve, perhaps). They "
        "come "
        "here once it has ended.");
  if (const ClaudeHookState* const hook = client.hook()) add(hook->problem);
  return problems;
}

}  // namespace ostrel

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
  add(*client.codexDiscovery().error());
  add(*client.codexRequests().error());
  if (*client.permissions().taken())
    add("Claude Code's prompts go to another program of Ostrel that runs (ostrelctl serve, perhaps). They "
        "come "
        "here once it has ended.");
  if (const ClaudeHookState* const hook = client.hook()) add(hook->problem);
  return problems;
}

}  // namespace ostrel

#include "Herdr/HerdrIntegrations.h"

#include <algorithm>
#include <set>

#include "Herdr/HerdrProviders.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kExperimental = " (experimental)";

bool isTarget(std::string_view word) {
  return std::ranges::any_of(HerdrProvider::all(),
                             [&](const HerdrProvider& provider) { return provider.integration == word; });
}

bool isKnownState(std::string_view state) {
  return state == "not installed" || state.starts_with("current (") || state.starts_with("outdated (") ||
         state.starts_with("needs repair (");
}

}  // namespace

std::vector<HerdrIntegration> HerdrIntegration::parse(std::string_view data) {
  if (!text::isUtf8(data)) throw Failure("Integration status is not valid text.");
  const Failure unrecognized(
      "This Herdr version returned an unrecognized integration status. See the integration guide.");
  std::vector<HerdrIntegration> found;
  std::set<std::string> seen;
  for (std::string_view line : text::split(data, '\n')) {
    line = text::dropSuffix(line, "\r");
    const auto colon = line.find(':');
    if (colon == std::string_view::npos) continue;
    std::string target(line.substr(0, colon));
    for (auto at = target.find(kExperimental); at != std::string::npos; at = target.find(kExperimental)) {
      target.erase(at, kExperimental.size());
    }
    if (!isTarget(target)) continue;
    std::string_view state = text::trimBlanks(line.substr(colon + 1));
    state = state.substr(0, state.find(" (/"));  // the path where it is installed
    if (!isKnownState(state)) continue;
    if (!seen.insert(target).second) throw unrecognized;
    found.push_back({std::move(target), std::string(state)});
  }
  if (found.empty()) throw unrecognized;
  return found;
}

std::vector<std::string> HerdrIntegration::recommended(std::span<const HerdrIntegration> integrations,
                                                       std::span<const HerdrAgent> agents) {
  std::set<std::string> active;
  for (const HerdrAgent& agent : agents) active.insert(text::lowercase(agent.provider));
  std::vector<std::string> ids;
  for (const HerdrIntegration& integration : integrations) {
    if (integration.isCurrent()) continue;
    if (active.contains(integration.id) || integration.state != "not installed")
      ids.push_back(integration.id);
  }
  return ids;
}

}  // namespace ostrel

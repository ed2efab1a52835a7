#include "App/AgentGroups.h"

#include <algorithm>
#include <limits>
#include <string_view>
#include <utility>

#include <fmt/format.h>

#include "Runtime/CaseFolding.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

constexpr std::string_view kNeedsYou = "Needs you";

// When an agent last changed. One that works changes all the time: it counts as the latest, so that projects
// whose agents take turns in writing don't take turns in the list.
WallTime latestChange(const LitAgent& lit) {
  if (lit.light == AgentLight::working) return WallTime::max();
  return lit.agent().since.value_or(kDistantPast);
}

std::vector<AgentGroup> frozenGroups(const std::vector<LitAgent>& agents, const FrozenGroups& frozen) {
  std::vector<AgentGroup> groups = frozen.headings();
  std::vector<std::vector<std::size_t>> ranks(groups.size());
  std::unordered_map<std::string, std::size_t> fresh;  // projects that came later
  for (const LitAgent& lit : agents) {
    const auto place = frozen.place(lit.id());
    std::size_t group = place ? place->group : 0;
    if (!place) {
      std::string project = lit.agent().projectLabel();
      const auto known = frozen.project(project);
      group = known ? *known : fresh.try_emplace(project, groups.size()).first->second;
      if (group == groups.size()) {
        groups.push_back({.project = std::move(project), .agents = {}});
        ranks.emplace_back();
      }
    }
    const std::size_t rank = place ? place->rank : std::numeric_limits<std::size_t>::max();
    const auto at = std::ranges::upper_bound(ranks[group], rank);
    const auto index = at - ranks[group].begin();
    ranks[group].insert(at, rank);
    groups[group].agents.insert(groups[group].agents.begin() + index, lit);
  }
  return groups;
}

std::vector<AgentGroup> liveGroups(const std::vector<LitAgent>& agents) {
  struct Project {
    AgentGroup group;
    WallTime changed = kDistantPast;
    std::size_t place = 0;  // decides among equals
  };
  struct Waiting {
    const LitAgent* lit;
    std::pair<WallTime, std::size_t> order;
  };
  std::vector<Waiting> waiting;
  std::vector<Project> projects;
  std::unordered_map<std::string, std::size_t> places;
  for (const LitAgent& lit : agents) {
    std::string name = lit.agent().projectLabel();
    const auto [place, isNew] = places.try_emplace(name, projects.size());
    if (isNew)
      projects.push_back({.group = {.project = std::move(name), .agents = {}}, .place = projects.size()});
    Project& project = projects[place->second];
    // Also of one that stands above: its project stays where it is while it waits.
    project.changed = std::max(project.changed, latestChange(lit));
    if (lit.light != AgentLight::needsYou) {
      project.group.agents.push_back(lit);
    } else {
      waiting.push_back({&lit, {lit.agent().since.value_or(WallTime::max()), waiting.size()}});
    }
  }
  std::ranges::sort(waiting, {}, &Waiting::order);
  std::ranges::sort(projects, [](const Project& one, const Project& other) {
    return std::pair(other.changed, one.place) < std::pair(one.changed, other.place);
  });
  std::vector<AgentGroup> groups{{.project = std::string(kNeedsYou), .needsYou = true, .agents = {}}};
  for (const Waiting& one : waiting) groups.front().agents.push_back(*one.lit);
  for (Project& project : projects) groups.push_back(std::move(project.group));
  return groups;
}

// The words by which an agent is found, one blank between them.
std::string searched(const HerdrAgent& agent, const Preferences* preferences) {
  const bool claude = agent.knownProvider() == AgentProvider::claude;  // it is shown as "Claude Code"
  return text::caseFolded(fmt::format("{} {} {}{}",
                                      preferences ? agent.displayTitle(*preferences) : agent.title,
                                      agent.projectLabel(), agent.provider, claude ? " Claude Code" : ""));
}

}  // namespace

FrozenGroups::FrozenGroups(const std::vector<AgentGroup>& groups) {
  for (const AgentGroup& group : groups) {
    for (const LitAgent& lit : group.agents)
      places_.try_emplace(lit.id(), Place{headings_.size(), places_.size(), lit.light});
    headings_.push_back({.project = group.project, .needsYou = group.needsYou, .agents = {}});
  }
}

std::optional<FrozenGroups::Place> FrozenGroups::place(const std::string& id) const {
  const auto found = places_.find(id);
  return found == places_.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::size_t> FrozenGroups::project(const std::string& name) const {
  const auto found = std::ranges::find_if(
      headings_, [&](const AgentGroup& heading) { return !heading.needsYou && heading.project == name; });
  if (found == headings_.end()) return std::nullopt;
  return static_cast<std::size_t>(found - headings_.begin());
}

std::vector<AgentGroup> agentGroups(const std::vector<LitAgent>& agents, const FrozenGroups* frozen) {
  std::vector<AgentGroup> groups = frozen ? frozenGroups(agents, *frozen) : liveGroups(agents);
  std::erase_if(groups, [](const AgentGroup& group) { return group.agents.empty(); });
  return groups;
}

std::vector<AgentGroup> filtered(std::vector<AgentGroup> groups, const AgentFilter& filter,
                                 const FrozenGroups* frozen, const Preferences* preferences) {
  if (filter.empty()) return groups;
  const std::string folded = text::caseFolded(filter.text);
  const std::vector<std::string_view> words = text::words(folded);
  const auto fails = [&](const LitAgent& lit) {
    const auto place = frozen ? frozen->place(lit.id()) : std::nullopt;
    if (filter.light && (place ? place->light : lit.light) != *filter.light) return true;
    if (words.empty()) return false;
    const std::string text = searched(lit.agent(), preferences);
    return !std::ranges::all_of(words, [&](std::string_view word) { return text.contains(word); });
  };
  for (AgentGroup& group : groups) std::erase_if(group.agents, fails);
  std::erase_if(groups, [](const AgentGroup& group) { return group.agents.empty(); });
  return groups;
}

}  // namespace ostrel

#include "App/OstrelModel.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

namespace ostrel {

namespace {

std::array<int, 4> countLights(const std::vector<AgentLight>& lights) {
  std::array<int, 4> counts{};
  for (const AgentLight light : lights) ++counts[static_cast<std::size_t>(light)];
  return counts;
}

}  // namespace

OstrelModel::OstrelModel(LitSource& source)
    : source_(source), deliveries_(source.observe([this] { deliver(); })) {}

void OstrelModel::deliver() {
  changes_.notify();
  if (onLayout) onLayout();
  if (onAgents) onAgents(source_.list());
}

std::vector<AgentGroup> OstrelModel::agentGroups() const {
  struct Row {
    const LitAgent* lit;
    std::size_t rank;
    std::size_t place;  // decides among equals
  };
  std::unordered_map<std::string, std::size_t> frozen;
  if (frozenOrder_) {
    for (const std::string& id : *frozenOrder_) frozen.try_emplace(id, frozen.size());
  }
  const auto rank = [&](const LitAgent& lit) -> std::size_t {
    if (!frozenOrder_) return lit.light == AgentLight::needsYou ? 0 : 1;
    const auto found = frozen.find(lit.id());
    return found == frozen.end() ? frozen.size() : found->second;
  };
  std::vector<AgentGroup> groups;
  std::vector<std::vector<Row>> rows;
  std::unordered_map<std::string, std::size_t> places;
  for (const LitAgent& lit : source_.list().agents) {
    std::string project = lit.agent().projectLabel();
    const auto [place, fresh] = places.try_emplace(project, groups.size());
    if (fresh) {
      groups.push_back({std::move(project), {}});
      rows.emplace_back();
    }
    rows[place->second].push_back({&lit, rank(lit), rows[place->second].size()});
  }
  for (std::size_t i = 0; i < groups.size(); ++i) {
    std::ranges::sort(rows[i], {}, [](const Row& row) { return std::pair(row.rank, row.place); });
    for (const Row& row : rows[i]) groups[i].agents.push_back(*row.lit);
  }
  return groups;
}

std::vector<LitAgent> OstrelModel::railAgents() const {
  std::vector<LitAgent> agents;
  for (const AgentLight light :
       {AgentLight::needsYou, AgentLight::working, AgentLight::done, AgentLight::idle}) {
    for (const LitAgent& lit : source_.list().agents) {
      if (lit.light == light) agents.push_back(lit);
    }
  }
  return agents;
}

std::vector<AgentLight> OstrelModel::notchLights() const {
  std::vector<AgentLight> lights;
  for (const LitAgent& lit : source_.list().agents) lights.push_back(lit.light);
  return lights;
}

int OstrelModel::agentCount() const { return static_cast<int>(source_.list().agents.size()); }

std::string OstrelModel::notchSummary() const {
  const std::vector<AgentLight> lights = notchLights();
  if (lights.empty()) return "No agents running";
  constexpr std::string_view labels[] = {"needs you", "working", "done", "idle"};
  const std::array<int, 4> counts = countLights(lights);
  std::vector<std::string> pieces;
  for (std::size_t i = 0; i < counts.size(); ++i) {
    if (counts[i] > 0) pieces.push_back(fmt::format("{} {}", counts[i], labels[i]));
  }
  return fmt::format("{}", fmt::join(pieces, " · "));
}

std::string OstrelModel::selectorSummary() const {
  const std::vector<AgentLight> lights = notchLights();
  const auto [needing, working, done, idle] = countLights(lights);
  std::vector<std::string> pieces;
  if (needing > 0) pieces.push_back(fmt::format("{} need{} you", needing, needing == 1 ? "s" : ""));
  if (working > 0) pieces.push_back(fmt::format("{} working", working));
  if (done > 0) pieces.push_back(fmt::format("{} done", done));
  if (!pieces.empty()) return fmt::format("{}", fmt::join(pieces, " · "));
  if (lights.empty() && !problems_->empty()) return "No agents found";
  return lights.size() == 1 ? "1 agent · all quiet" : fmt::format("{} agents · all quiet", lights.size());
}

int OstrelModel::selectorRowCount() const {
  std::unordered_map<std::string, int> projects;
  const std::vector<LitAgent>& agents = source_.list().agents;
  for (const LitAgent& lit : agents) ++projects[lit.agent().projectLabel()];
  const int groups = static_cast<int>(projects.size());
  return static_cast<int>(agents.size()) + (groups >= 2 ? (groups * 6 + 9) / 10 : 0);
}

void OstrelModel::moveSelection(bool down) {
  const std::vector<std::string> order = displayOrder();
  if (order.empty()) return;
  const auto last = order.size() - 1;
  std::size_t next = down ? 0 : last;
  const auto chosen = std::ranges::find(order, keyboardSelection_->value_or(""));
  if (chosen != order.end()) {
    const auto at = static_cast<std::size_t>(chosen - order.begin());
    next = down ? std::min(at + 1, last) : at - std::min<std::size_t>(at, 1);
  }
  keyboardSelection_.set(order[next]);
}

std::optional<HerdrAgent> OstrelModel::selectedAgent() const {
  const auto lit = *keyboardSelection_ ? find(**keyboardSelection_) : std::nullopt;
  return lit ? std::optional(lit->agent()) : std::nullopt;
}

std::optional<LitAgent> OstrelModel::find(std::string_view id) const {
  const std::vector<LitAgent>& agents = source_.list().agents;
  const auto found = std::ranges::find(agents, id, &LitAgent::id);
  return found == agents.end() ? std::nullopt : std::optional(*found);
}

std::optional<HerdrAgent> OstrelModel::neighbour(std::string_view id, bool down) const {
  const std::vector<std::string> order = displayOrder();
  if (order.empty()) return std::nullopt;
  const auto size = order.size();
  std::size_t next = down ? 0 : size - 1;
  const auto at = std::ranges::find(order, id);
  if (at != order.end()) next = (static_cast<std::size_t>(at - order.begin()) + (down ? 1 : size - 1)) % size;
  if (order[next] == id) return std::nullopt;
  const auto lit = find(order[next]);
  return lit ? std::optional(lit->agent()) : std::nullopt;
}

std::optional<HerdrAgent> OstrelModel::nextWaiting(std::string_view id) const {
  std::vector<std::string> order = displayOrder();
  const auto at = std::ranges::find(order, id);
  if (at != order.end()) std::ranges::rotate(order, at + 1);
  for (const std::string& each : order) {
    const auto lit = find(each);
    if (each != id && lit && lit->light == AgentLight::needsYou) return lit->agent();
  }
  return std::nullopt;
}

std::vector<std::string> OstrelModel::displayOrder() const {
  std::vector<std::string> order;
  for (const AgentGroup& group : agentGroups()) {
    for (const LitAgent& lit : group.agents) order.push_back(lit.id());
  }
  return order;
}

void OstrelModel::freezeOrder(bool freeze) {
  if (!freeze) {
    if (!frozenOrder_) return;
    frozenOrder_.reset();
  } else {
    frozenOrder_ = displayOrder();
  }
  changes_.notify();
}

}  // namespace ostrel

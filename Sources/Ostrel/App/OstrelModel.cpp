#include "App/OstrelModel.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Runtime/Text.h"

namespace ostrel {

namespace {

std::array<int, 4> countLights(const std::vector<AgentLight>& lights) {
  std::array<int, 4> counts{};
  for (const AgentLight light : lights) ++counts[static_cast<std::size_t>(light)];
  return counts;
}

}  // namespace

OstrelModel::OstrelModel(LitSource& source, const Preferences* preferences)
    : source_(source), preferences_(preferences), deliveries_(source.observe([this] { deliver(); })) {}

void OstrelModel::deliver() {
  changes_.notify();
  if (onLayout) onLayout();
  if (onAgents) onAgents(source_.list());
}

std::vector<AgentGroup> OstrelModel::agentGroups() const {
  return filtered(ostrel::agentGroups(source_.list().agents, frozen()), *filter_, frozen(), preferences_);
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

std::array<int, 4> OstrelModel::lightCounts() const { return countLights(notchLights()); }

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

std::string OstrelModel::countWords(AgentLight light, int count) {
  constexpr std::string_view words[] = {"need you", "working", "done", "idle"};
  if (light == AgentLight::needsYou && count == 1) return "1 needs you";
  return fmt::format("{} {}", count, words[static_cast<std::size_t>(light)]);
}

std::string OstrelModel::selectorSummary() const {
  const std::vector<AgentLight> lights = notchLights();
  const std::array<int, 4> counts = countLights(lights);
  std::vector<std::string> pieces;
  for (const AgentLight light : {AgentLight::needsYou, AgentLight::working, AgentLight::done}) {
    const int count = counts[static_cast<std::size_t>(light)];
    if (count > 0) pieces.push_back(countWords(light, count));
  }
  if (!pieces.empty()) return fmt::format("{}", fmt::join(pieces, " · "));
  if (lights.empty() && !problems_->empty()) return "No agents found";
  return lights.size() == 1 ? "1 agent · all quiet" : fmt::format("{} agents · all quiet", lights.size());
}

bool OstrelModel::hasHeadings(const std::vector<AgentGroup>& groups) {
  return groups.size() > 1 || std::ranges::any_of(groups, &AgentGroup::needsYou);
}

int OstrelModel::selectorRowCount() const {
  const std::vector<AgentGroup> groups = ostrel::agentGroups(source_.list().agents, frozen());
  const int headings = hasHeadings(groups) ? static_cast<int>(groups.size()) : 0;
  return agentCount() + (headings * 6 + 9) / 10;
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

void OstrelModel::setFilter(AgentFilter filter) {
  if (!filter_.set(std::move(filter)) || text::trim(filter_->text).empty()) return;
  const std::vector<std::string> order = displayOrder();
  if (std::ranges::find(order, keyboardSelection_->value_or("")) != order.end()) return;
  keyboardSelection_.set(order.empty() ? std::nullopt : std::optional(order.front()));
}

std::string OstrelModel::emptyResult() const {
  if (agentCount() == 0 || !agentGroups().empty()) return {};
  constexpr std::string_view states[] = {"needs you", "is working", "is done", "is idle"};
  const auto& [text, light] = *filter_;
  const std::string_view state = light ? states[static_cast<std::size_t>(*light)] : "";
  if (text.empty()) return fmt::format("No agent {} now.", state);
  return fmt::format("No agent{}{} matches “{}”.", light ? " that " : "", state, text);
}

void OstrelModel::freezeOrder(bool freeze) {
  if (!freeze && !frozen_) return;
  frozen_ = freeze ? std::optional(FrozenGroups(ostrel::agentGroups(source_.list().agents, frozen())))
                   : std::nullopt;
  changes_.notify();
}

}  // namespace ostrel

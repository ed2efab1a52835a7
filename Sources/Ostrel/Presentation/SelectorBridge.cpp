#include "SelectorBridge.h"

#include <unordered_map>
#include <utility>

#include "Platform/Processes.h"
#include "Words.h"

namespace ostrel {

SelectorBridge::SelectorBridge(BridgeParts parts) : parts_(std::move(parts)) {
  subscriptions_.push_back(parts_.model.observe([this] { refresh(); }));
  subscriptions_.push_back(parts_.model.keyboardSelection().observe([this] { Q_EMIT selectionChanged(); }));
  subscriptions_.push_back(parts_.model.problems().observe([this] {
    refresh();
    Q_EMIT problemsChanged();
  }));
  refresh();
}

QStringList SelectorBridge::problems() const {
  QStringList all;
  for (const std::string& each : *parts_.model.problems()) all.append(words::shown(each));
  return all;
}

void SelectorBridge::refresh() {
  std::unordered_map<std::string, AgentLight> lights;
  for (const auto& [agent, light] : parts_.model.railAgents()) lights.emplace(agent.id(), light);
  const std::vector<AgentGroup> groups = parts_.model.agentGroups();
  std::vector<Row> rows;
  for (const AgentGroup& group : groups) {
    if (groups.size() > 1) {
      rows.push_back({QStringLiteral("project ") + words::of(group.project),
                      {true, words::shown(oneLine(group.project)), QString(), 0, QString()}});
    }
    for (const HerdrAgent& agent : group.agents) {
      const std::string id = agent.id();
      const auto found = lights.find(id);
      const AgentLight light = found == lights.end() ? AgentLight::idle : found->second;
      rows.push_back({words::of(id),
                      {false, words::shown(agent.displayTitle(parts_.preferences)), words::subtitle(agent),
                       static_cast<int>(light), words::light(light)}});
    }
  }
  rows_.set(rows);
  QString summary = words::of(parts_.model.selectorSummary());
  const int agents = static_cast<int>(lights.size());
  if (summary == summary_ && agents == agents_) return;
  summary_ = std::move(summary);
  agents_ = agents;
  Q_EMIT changed();
}

QString SelectorBridge::selection() const {
  return words::of(parts_.model.keyboardSelection()->value_or(""));
}

int SelectorBridge::selectionRow() const {
  const auto found = std::ranges::find(rows_.rows(), selection(), &Row::key);
  return found == rows_.rows().end() ? -1 : static_cast<int>(found - rows_.rows().begin());
}

void SelectorBridge::hover(const QString& key, bool inside) {
  if (const auto agent = find(key)) parts_.edge.hoverAgent(*agent, inside);
}

void SelectorBridge::open(const QString& key) {
  if (const auto agent = find(key)) parts_.edge.openAgent(*agent);
}

bool SelectorBridge::press(Key key) {
  constexpr PanelKey keys[] = {PanelKey::up, PanelKey::down, PanelKey::open, PanelKey::close};
  return parts_.edge.keyPressed(keys[key]);
}

std::optional<HerdrAgent> SelectorBridge::find(const QString& key) const {
  for (const auto& [agent, light] : parts_.model.railAgents()) {
    if (words::of(agent.id()) == key) return agent;
  }
  return std::nullopt;
}

}  // namespace ostrel

#include "SelectorBridge.h"

#include <algorithm>
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
  const std::vector<AgentGroup> groups = parts_.model.agentGroups();
  std::vector<SelectorRow> rows;
  for (const AgentGroup& group : groups) {
    if (groups.size() > 1) {
      rows.push_back({.key = QStringLiteral("project ") + words::of(group.project),
                      .heading = true,
                      .title = words::shown(oneLine(group.project)),
                      .subtitle = {},
                      .status = {}});
    }
    for (const LitAgent& lit : group.agents) {
      rows.push_back({.key = words::of(lit.id()),
                      .title = words::shown(lit.agent().displayTitle(parts_.preferences)),
                      .subtitle = words::subtitle(lit.agent()),
                      .light = static_cast<int>(lit.light),
                      .status = words::light(lit.light)});
    }
  }
  rows_.set(std::move(rows));
  QString summary = words::of(parts_.model.selectorSummary());
  const int agents = parts_.model.agentCount();
  if (summary == summary_ && agents == agents_) return;
  summary_ = std::move(summary);
  agents_ = agents;
  Q_EMIT changed();
}

QString SelectorBridge::selection() const {
  return words::of(parts_.model.keyboardSelection()->value_or(""));
}

int SelectorBridge::selectionRow() const {
  const auto found = std::ranges::find(rows_.rows(), selection(), &SelectorRow::key);
  return found == rows_.rows().end() ? -1 : static_cast<int>(found - rows_.rows().begin());
}

void SelectorBridge::hover(const QString& key, bool inside) {
  if (const auto lit = parts_.model.find(key.toStdString())) parts_.edge.hoverAgent(lit->agent(), inside);
}

void SelectorBridge::open(const QString& key) {
  if (const auto lit = parts_.model.find(key.toStdString())) parts_.edge.openAgent(lit->agent());
}

bool SelectorBridge::press(Key key) {
  constexpr PanelKey keys[] = {PanelKey::up, PanelKey::down, PanelKey::open, PanelKey::close};
  return parts_.edge.keyPressed(keys[key]);
}

}  // namespace ostrel

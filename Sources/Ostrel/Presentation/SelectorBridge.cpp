#include "SelectorBridge.h"

#include <algorithm>
#include <utility>

#include "App/AgentWords.h"
#include "Platform/Processes.h"
#include "Words.h"

namespace ostrel {

SelectorBridge::SelectorBridge(BridgeParts parts, Sources sources)
    : parts_(std::move(parts)), sources_(sources) {
  follow();
  keepAges();
  refresh();
}

void SelectorBridge::follow() {
  const auto on = [this](const auto& value, auto work) { subscriptions_.push_back(value.observe(work)); };
  subscriptions_.push_back(parts_.model.observe([this] { refresh(); }));
  subscriptions_.push_back(sources_.requests.observe([this] { refresh(); }));
  on(parts_.model.filter(), [this] {
    refresh();
    Q_EMIT filterChanged();
  });
  on(parts_.model.keyboardSelection(), [this] { Q_EMIT selectionChanged(); });
  on(parts_.model.problems(), [this] {
    refresh();
    Q_EMIT problemsChanged();
  });
  on(parts_.edge.shown().openAgent, [this] { Q_EMIT openAgentChanged(); });
  on(parts_.edge.shown().isPanelVisible, [this] {
    keepAges();
    refresh();
  });
}

// One timer for all rows, and none while nobody sees them.
void SelectorBridge::keepAges() {
  ages_.reset();
  if (!*parts_.edge.shown().isPanelVisible) return;
  ages_ = sources_.loop.after(kAgesAnew, [this] {
    keepAges();
    refresh();
  });
}

QStringList SelectorBridge::problems() const {
  QStringList all;
  for (const std::string& each : *parts_.model.problems()) all.append(words::shown(each));
  return all;
}

SelectorRow SelectorBridge::row(const LitAgent& lit, bool withProject,
                                const std::map<std::string, std::string>& asked, WallTime now) const {
  const HerdrAgent& agent = lit.agent();
  const auto question = asked.find(lit.id());
  const bool asks = question != asked.end();
  QString subtitle = asks ? words::shown(oneLine(question->second)) : words::subtitle(agent);
  if (withProject) subtitle.prepend(words::shown(oneLine(agent.projectLabel())) + QStringLiteral(" · "));
  return {.key = words::of(lit.id()),
          .title = words::shown(agent.displayTitle(parts_.preferences)),
          .subtitle = std::move(subtitle),
          .asks = asks,
          .light = static_cast<int>(lit.light),
          .status = words::light(lit.light),
          .age = agent.since ? words::of(ageWords(*agent.since, now)) : QString()};
}

std::vector<SelectorRow> SelectorBridge::made() const {
  std::map<std::string, std::string> asked;  // the first request of each agent
  for (const OpenRequest& request : sources_.requests.list()) {
    if (request.agent) asked.try_emplace(*request.agent, askedWords(request));
  }
  const std::vector<AgentGroup> groups = parts_.model.agentGroups();
  const bool headings = OstrelModel::hasHeadings(groups);
  const WallTime now = sources_.loop.wallNow();
  std::vector<SelectorRow> rows;
  for (const AgentGroup& group : groups) {
    if (headings) {
      rows.push_back({.key = group.needsYou ? QStringLiteral("needs you")
                                            : QStringLiteral("project ") + words::of(group.project),
                      .heading = true,
                      .title = words::shown(oneLine(group.project)),
                      .subtitle = {},
                      .status = {},
                      .age = {}});
    }
    for (const LitAgent& lit : group.agents) rows.push_back(row(lit, group.needsYou, asked, now));
  }
  return rows;
}

void SelectorBridge::refresh() {
  if (std::vector<SelectorRow> rows = made(); rows != rows_.rows()) {
    rows_.set(std::move(rows));
    ++edition_;
    Q_EMIT rowsChanged();
  }
  QString summary = words::of(parts_.model.selectorSummary());
  QString empty = words::shown(parts_.model.emptyResult());
  const auto lights = parts_.model.lightCounts();
  QList<int> counts(lights.begin(), lights.end());
  const int agents = parts_.model.agentCount();
  if (summary == summary_ && empty == emptyResult_ && counts == counts_ && agents == agents_) return;
  summary_ = std::move(summary);
  emptyResult_ = std::move(empty);
  counts_ = std::move(counts);
  agents_ = agents;
  Q_EMIT changed();
}

QStringList SelectorBridge::countWords() const {
  QStringList all;
  for (qsizetype i = 0; i < counts_.size(); ++i)
    all.append(words::of(OstrelModel::countWords(static_cast<AgentLight>(i), counts_[i])));
  return all;
}

QString SelectorBridge::selection() const {
  return words::of(parts_.model.keyboardSelection()->value_or(""));
}

int SelectorBridge::selectionRow() const {
  const auto found = std::ranges::find(rows_.rows(), selection(), &SelectorRow::key);
  return found == rows_.rows().end() ? -1 : static_cast<int>(found - rows_.rows().begin());
}

QString SelectorBridge::openAgent() const { return words::of(parts_.edge.shown().openAgent->value_or("")); }

QString SelectorBridge::filterText() const { return words::of(parts_.model.filter()->text); }

void SelectorBridge::setFilterText(const QString& text) {
  parts_.model.setFilter({text.toStdString(), parts_.model.filter()->light});
}

int SelectorBridge::chosenLight() const {
  const auto light = parts_.model.filter()->light;
  return light ? static_cast<int>(*light) : -1;
}

void SelectorBridge::chooseLight(int light) {
  AgentFilter filter = *parts_.model.filter();
  filter.light = light == chosenLight() ? std::nullopt : std::optional(static_cast<AgentLight>(light));
  parts_.model.setFilter(std::move(filter));
}

bool SelectorBridge::waits(std::size_t row) const {
  const SelectorRow& one = rows_.rows()[row];
  return !one.heading && one.light == static_cast<int>(AgentLight::needsYou);
}

int SelectorBridge::nextNeedsYou(int row) const {
  for (auto i = static_cast<std::size_t>(row + 1); i < rows_.rows().size(); ++i) {
    if (waits(i)) return static_cast<int>(i);
  }
  return -1;
}

int SelectorBridge::needsYouBelow(int row) const {
  int count = 0;
  for (int next = nextNeedsYou(row); next >= 0; next = nextNeedsYou(next)) ++count;
  return count;
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

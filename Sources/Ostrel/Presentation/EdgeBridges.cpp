#include "EdgeBridges.h"

#include <utility>

#include "App/OstrelSetting.h"
#include "App/RailPages.h"
#include "Runtime/Text.h"
#include "Words.h"

namespace ostrel {

namespace {

constexpr int kPadding = 8;  // points, below the last row of the rail

QString kindName(RailItem::Kind kind) {
  return kind == RailItem::Kind::agent  ? QStringLiteral("agent")
         : kind == RailItem::Kind::more ? QStringLiteral("more")
                                        : QStringLiteral("list");
}

RailRow rowOf(const RailItem& item, const std::vector<LitAgent>& agents, const Preferences& preferences) {
  RailRow row{.key = kindName(item.kind),
              .kind = kindName(item.kind),
              .place = item.y,
              .extent = item.height,
              .light = static_cast<int>(AgentLight::idle),
              .mark = {},
              .label = QStringLiteral("Show agents")};
  if (item.kind == RailItem::Kind::more) {
    row.mark = QStringLiteral("+%1").arg(item.index);
    row.label = QStringLiteral("%1 more agents").arg(item.index);
  } else if (item.kind == RailItem::Kind::agent) {
    const LitAgent& lit = agents.at(static_cast<std::size_t>(item.index));
    row.key = words::of(lit.id());
    row.light = static_cast<int>(lit.light);
    row.mark = words::mark(lit.agent());
    row.label = QStringLiteral("%1, %2").arg(words::shown(lit.agent().displayTitle(preferences)),
                                             words::light(lit.light));
  }
  return row;
}

}  // namespace

NotchBridge::NotchBridge(BridgeParts parts) : parts_(std::move(parts)) {
  subscriptions_.push_back(parts_.model.observe([this] { refresh(); }));
  subscriptions_.push_back(parts_.edge.shown().notchAway.observe([this] { Q_EMIT awayChanged(); }));
  refresh();
}

void NotchBridge::refresh() {
  std::vector<NotchRow> rows;
  int more = 0;
  if (parts_.preferences.boolean(OstrelSetting::notchLights)) {
    const edge::NotchLights lights = edge::notchLights(parts_.model.notchLights());
    for (const AgentLight light : lights.shown)
      rows.push_back({QString::number(rows.size()), static_cast<int>(light)});
    more = lights.more;
  }
  lights_.set(std::move(rows));
  QString summary = words::of(parts_.model.notchSummary());
  if (summary == summary_ && more == more_) return;
  summary_ = std::move(summary);
  more_ = more;
  Q_EMIT changed();
}

RailBridge::RailBridge(BridgeParts parts) : parts_(std::move(parts)) {
  subscriptions_.push_back(parts_.model.observe([this] { refresh(); }));
  subscriptions_.push_back(parts_.edge.shown().railExpanded.observe([this] { Q_EMIT expandedChanged(); }));
  refresh();
}

void RailBridge::refresh() {
  const auto screen = parts_.screens.main();
  if (!screen) return;
  const edge::Counts counts = parts_.edge.counts();
  const int visible = edge::railRows(*screen, counts);
  const std::vector<LitAgent> agents = parts_.model.railAgents();
  std::vector<RailRow> rows;
  int bottom = 0;
  for (const RailItem& item : rail::items(visible, counts, 0, false)) {
    bottom = item.y + item.height;
    rows.push_back(rowOf(item, agents, parts_.preferences));
  }
  items_.set(std::move(rows));
  const int height = bottom + kPadding;
  const int offset = (edge::railCollapsedHeight(visible, counts) - height) / 2;
  if (height == contentHeight_ && offset == offset_) return;
  contentHeight_ = height;
  offset_ = offset;
  Q_EMIT changed();
}

int RailBridge::entranceDelay(int index) const {
  using std::chrono::duration_cast;
  return static_cast<int>(
      duration_cast<std::chrono::milliseconds>(rail::entranceDelay(index, expanded(), false)).count());
}

void RailBridge::hover(const QString& key, bool inside) {
  // A row is left after the next one is entered.
  if (!inside && hovered_ != key) return;
  hovered_ = inside ? key : QString();
  parts_.edge.hoverPage(inside ? std::optional(RailPage::agents) : std::nullopt);
}

void RailBridge::open(const QString& key) {
  if (const auto lit = parts_.model.find(key.toStdString())) {
    parts_.edge.openAgent(lit->agent());
  } else {
    parts_.edge.openPage(RailPage::agents);
  }
}

}  // namespace ostrel

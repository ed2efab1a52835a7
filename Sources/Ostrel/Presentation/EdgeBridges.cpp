#include "EdgeBridges.h"

#include <QFontMetrics>
#include <QStringList>
#include <QToolTip>
#include <algorithm>
#include <utility>

#include "App/OstrelSetting.h"
#include "App/RailPages.h"
#include "Runtime/Text.h"
#include "Words.h"

namespace ostrel {

namespace {

constexpr int kPadding = 8;     // points, below the last row of the rail
constexpr int kTipWidth = 420;  // points; a longer title is cut
constexpr int kTipDrop = 26;    // points by which Qt places a tooltip below what it is told

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
              .glyph = {},
              .letter = {},
              .mark = {},
              .label = QStringLiteral("Show agents")};
  if (item.kind == RailItem::Kind::more) {
    row.mark = QStringLiteral("+%1").arg(item.index);
    row.label = QStringLiteral("%1 more agents").arg(item.index);
  } else if (item.kind == RailItem::Kind::agent) {
    const LitAgent& lit = agents.at(static_cast<std::size_t>(item.index));
    row.key = words::of(lit.id());
    row.light = static_cast<int>(lit.light);
    row.glyph = words::glyph(lit.agent());
    row.letter = words::initial(lit.agent().provider);
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
  subscriptions_.push_back(parts_.edge.shown().breathing.observe([this] { Q_EMIT breathingChanged(); }));
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
  subscriptions_.push_back(parts_.edge.shown().breathing.observe([this] { Q_EMIT breathingChanged(); }));
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
  if (!inside || hovered_ != key) QToolTip::hideText();
  hovered_ = inside ? key : QString();
  const auto lit = parts_.model.find(key.toStdString());
  if (lit) parts_.edge.hoverRailAgent(lit->agent(), inside);
  parts_.edge.hoverPage(inside && !lit ? std::optional(RailPage::agents) : std::nullopt);
}

void RailBridge::rest(const QString& key, QPointF place) {
  const auto row = std::ranges::find(items_.rows(), key, &RailRow::key);
  if (hovered_ != key || row == items_.rows().end()) return;
  QString first = row->label;
  QString second;
  if (const auto lit = parts_.model.find(key.toStdString())) {
    if (parts_.edge.showsAgent(lit->id())) return;
    first = words::shown(lit->agent().displayTitle(parts_.preferences));
    second = words::light(lit->light) + QStringLiteral(" · ") + words::subtitle(lit->agent());
  } else if (*parts_.edge.shown().isPanelVisible) {
    return;
  }
  const QFontMetrics metrics(QToolTip::font());
  QStringList lines;
  for (const QString& line : {first, second}) {
    if (!line.isEmpty()) lines.append(metrics.elidedText(line, Qt::ElideRight, kTipWidth).toHtmlEscaped());
  }
  // Qt tells markup by its looks: this is always markup, of words that are none.
  QToolTip::showText(
      QPoint(qRound(place.x()), qRound(place.y()) - kTipDrop - metrics.height() / 2),
      QStringLiteral("<p style='white-space:pre'>%1</p>").arg(lines.join(QLatin1String("<br>"))));
}

void RailBridge::open(const QString& key) {
  if (const auto lit = parts_.model.find(key.toStdString())) {
    parts_.edge.openAgent(lit->agent());
  } else {
    parts_.edge.openPage(RailPage::agents);
  }
}

}  // namespace ostrel

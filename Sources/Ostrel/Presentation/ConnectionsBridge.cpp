#include "ConnectionsBridge.h"

#include <algorithm>
#include <utility>

#include "Words.h"

namespace ostrel {

ConnectionsBridge::ConnectionsBridge(BridgeParts parts, ConnectionsSource& source)
    : parts_(std::move(parts)), source_(source) {
  // Where Herdr is, is looked for on the disk: only for somebody who sees it.
  const InterfaceState& shown = parts_.edge.shown();
  const auto look = [this, &shown] {
    if (*shown.isPanelVisible && shown.page->tab == PanelTab::connections) refresh();
  };
  subscriptions_.push_back(shown.isPanelVisible.observe(look));
  subscriptions_.push_back(shown.page.observe(look));
  subscriptions_.push_back(parts_.model.statusMessage().observe([this] { Q_EMIT changed(); }));
  subscriptions_.push_back(source_.observe(look));
}

void ConnectionsBridge::refresh() {
  const ConnectionFacts facts = source_.facts();
  shown_ = connections::rows(facts);
  std::vector<ConnectionCardRow> rows;
  for (const ConnectionRow& row : shown_) {
    QStringList titles;
    for (const auto& button : row.buttons) titles.append(words::of(button.title));
    rows.push_back({.key = words::of(row.id),
                    .title = words::of(row.title),
                    .status = words::of(row.state),
                    .note = words::of(row.note),
                    .light = static_cast<int>(row.light),
                    .buttons = titles});
  }
  rows_.set(std::move(rows));
  found_ = facts.program ? words::of(facts.program->string()) : QString();
  Q_EMIT changed();
}

QString ConnectionsBridge::message() const { return words::of(parts_.model.statusMessage()->value_or("")); }

QString ConnectionsBridge::executable() const { return words::of(source_.executable()); }

QString ConnectionsBridge::session() const { return words::of(source_.session()); }

void ConnectionsBridge::setExecutable(const QString& path) {
  source_.setExecutable(path.toStdString());
  refresh();
}

void ConnectionsBridge::setSession(const QString& name) {
  source_.setSession(name.toStdString());
  refresh();
}

void ConnectionsBridge::choose(const QString& key, int button) {
  const std::string id = key.toStdString();
  const auto row = std::ranges::find(shown_, id, &ConnectionRow::id);
  if (row == shown_.end() || button < 0 || button >= static_cast<int>(row->buttons.size())) return;
  // A copy: what is done changes the rows.
  const ConnectionAction action = row->buttons[static_cast<std::size_t>(button)].action;
  source_.choose(id, action);
}

}  // namespace ostrel

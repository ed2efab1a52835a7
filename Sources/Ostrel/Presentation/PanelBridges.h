// What the agent list and the conversation window show and ask for. Main thread only.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <optional>
#include <vector>

#include "EdgeBridges.h"

namespace ostrel {

class SelectorBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowModel* rows READ rows CONSTANT)
  Q_PROPERTY(QString summary READ summary NOTIFY changed)
  Q_PROPERTY(int agents READ agents NOTIFY changed)
  Q_PROPERTY(QString selection READ selection NOTIFY selectionChanged)
  Q_PROPERTY(int selectionRow READ selectionRow NOTIFY selectionChanged)

 public:
  enum Key { Up, Down, Open, Close };
  Q_ENUM(Key)

  explicit SelectorBridge(BridgeParts parts);

  RowModel* rows() { return &rows_; }
  QString summary() const { return summary_; }
  int agents() const { return agents_; }
  QString selection() const;  // the key of the row that the keyboard has chosen
  int selectionRow() const;   // its place, or -1
  void refresh();

  Q_INVOKABLE void hover(const QString& key, bool inside);
  Q_INVOKABLE void hoverList(bool inside) { parts_.edge.hoverList(inside); }
  Q_INVOKABLE void open(const QString& key);
  Q_INVOKABLE bool press(ostrel::SelectorBridge::Key key);

 Q_SIGNALS:
  void changed();
  void selectionChanged();

 private:
  std::optional<HerdrAgent> find(const QString& key) const;

  BridgeParts parts_;
  RowModel rows_{{"heading", "title", "subtitle", "light", "state"}};
  QString summary_;
  int agents_ = 0;
  std::vector<Subscription> subscriptions_;
};

// One agent, in a window beside the list.
class AgentBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString title READ title NOTIFY changed)
  Q_PROPERTY(QString state READ state NOTIFY changed)
  Q_PROPERTY(int light READ light NOTIFY changed)
  Q_PROPERTY(ostrel::RowModel* facts READ facts CONSTANT)

 public:
  explicit AgentBridge(BridgeParts parts);

  QString title() const { return title_; }
  QString state() const;
  int light() const { return static_cast<int>(light_); }
  RowModel* facts() { return &facts_; }

  void show(const HerdrAgent& agent);
  // Follows the agent that is shown; its last record stays when it has gone.
  void refresh();
  Q_INVOKABLE void close() { parts_.edge.closeAgent(); }

 Q_SIGNALS:
  void changed();

 private:
  BridgeParts parts_;
  std::optional<HerdrAgent> agent_;
  bool ended_ = false;
  QString title_;
  AgentLight light_ = AgentLight::idle;
  RowModel facts_{{"name", "value"}};
  Subscription subscription_;
};

}  // namespace ostrel

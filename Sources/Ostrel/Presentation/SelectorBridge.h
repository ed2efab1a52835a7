// What the agent list shows and asks for. Main thread only.
#pragma once

#include <QObject>
#include <QStringList>
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
  Q_PROPERTY(QStringList problems READ problems NOTIFY problemsChanged)
  Q_PROPERTY(QString selection READ selection NOTIFY selectionChanged)
  Q_PROPERTY(int selectionRow READ selectionRow NOTIFY selectionChanged)

 public:
  enum Key { Up, Down, Open, Close };
  Q_ENUM(Key)

  explicit SelectorBridge(BridgeParts parts);

  RowModel* rows() { return &rows_; }
  QString summary() const { return summary_; }
  int agents() const { return agents_; }
  QStringList problems() const;  // why the list may not be whole
  QString selection() const;     // the key of the row that the keyboard has chosen
  int selectionRow() const;      // its place, or -1
  void refresh();

  Q_INVOKABLE void hover(const QString& key, bool inside);
  Q_INVOKABLE void hoverList(bool inside) { parts_.edge.hoverList(inside); }
  Q_INVOKABLE void open(const QString& key);
  Q_INVOKABLE void openConnections() { parts_.edge.openPage({PanelTab::connections, false}); }
  Q_INVOKABLE bool press(ostrel::SelectorBridge::Key key);

 Q_SIGNALS:
  void changed();
  void problemsChanged();
  void selectionChanged();

 private:
  std::optional<HerdrAgent> find(const QString& key) const;

  BridgeParts parts_;
  RowModel rows_{{"heading", "title", "subtitle", "light", "state"}};
  QString summary_;
  int agents_ = 0;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

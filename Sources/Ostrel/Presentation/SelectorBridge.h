// What the agent list shows and asks for. Main thread only.
#pragma once

#include <QObject>
#include <QStringList>
#include <QtQmlIntegration>
#include <vector>

#include "EdgeBridges.h"

namespace ostrel {

// A row of the agent list: a project's heading or an agent.
struct SelectorRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(bool heading MEMBER heading)
  Q_PROPERTY(QString title MEMBER title)
  Q_PROPERTY(QString subtitle MEMBER subtitle)
  Q_PROPERTY(int light MEMBER light)
  Q_PROPERTY(QString status MEMBER status)

 public:
  QString key;           // the agent's id, or "project " and its name
  bool heading = false;  // a project's; it has a title and nothing else
  QString title;
  QString subtitle;  // what it is and where it runs
  int light = 0;     // the number of its `AgentLight`
  QString status;    // the light in words
  bool operator==(const SelectorRow&) const = default;
};

class SelectorBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* rows READ rows CONSTANT)
  Q_PROPERTY(QString summary READ summary NOTIFY changed)
  Q_PROPERTY(int agents READ agents NOTIFY changed)
  Q_PROPERTY(QStringList problems READ problems NOTIFY problemsChanged)
  Q_PROPERTY(QString selection READ selection NOTIFY selectionChanged)
  Q_PROPERTY(int selectionRow READ selectionRow NOTIFY selectionChanged)

 public:
  enum Key { Up, Down, Open, Close };
  Q_ENUM(Key)

  explicit SelectorBridge(BridgeParts parts);

  ListModel<SelectorRow>* rows() { return &rows_; }
  QString summary() const { return summary_; }  // the list in a line
  int agents() const { return agents_; }        // how many there are
  QStringList problems() const;                 // why the list may not be whole
  QString selection() const;                    // the key of the row that the keyboard has chosen
  int selectionRow() const;                     // its place, or -1
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
  BridgeParts parts_;
  ListModel<SelectorRow> rows_;
  QString summary_;
  int agents_ = 0;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

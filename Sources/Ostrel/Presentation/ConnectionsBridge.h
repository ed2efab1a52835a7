// What the page of connections shows and asks for. Main thread only.
#pragma once

#include <QObject>
#include <QStringList>
#include <QtQmlIntegration>
#include <vector>

#include "App/ConnectionsPage.h"
#include "EdgeBridges.h"

namespace ostrel {

struct ConnectionCardRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(QString title MEMBER title)
  Q_PROPERTY(QString status MEMBER status)
  Q_PROPERTY(QString note MEMBER note)
  Q_PROPERTY(int light MEMBER light)
  Q_PROPERTY(QStringList buttons MEMBER buttons)

 public:
  QString key;  // its `ConnectionRow`'s id
  QString title;
  QString status;       // how it stands, in a line
  QString note;         // further words; often empty
  int light = 0;        // the number of its `AgentLight`
  QStringList buttons;  // their titles, the likelier one last
  bool operator==(const ConnectionCardRow&) const = default;
};

class ConnectionsBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* rows READ rows CONSTANT)
  Q_PROPERTY(QString message READ message NOTIFY changed)
  Q_PROPERTY(QString executable READ executable WRITE setExecutable NOTIFY changed)
  Q_PROPERTY(QString foundExecutable READ foundExecutable NOTIFY changed)
  Q_PROPERTY(QString session READ session WRITE setSession NOTIFY changed)

 public:
  ConnectionsBridge(BridgeParts parts, ConnectionsSource& source);

  ListModel<ConnectionCardRow>* rows() { return &rows_; }
  QString message() const;     // what was asked of the person last; often empty
  QString executable() const;  // of Herdr, as the person chose it; empty: what is installed
  QString foundExecutable() const { return found_; }  // in use while none is chosen; may be empty
  QString session() const;                            // of Herdr; empty: all of them
  void setExecutable(const QString& path);
  void setSession(const QString& name);
  void refresh();

  // The button of that place in the row.
  Q_INVOKABLE void choose(const QString& key, int button);
  Q_INVOKABLE void showAgents() { parts_.edge.openPage(RailPage::agents); }
  Q_INVOKABLE void close() { parts_.edge.hidePanel(); }

 Q_SIGNALS:
  void changed();

 private:
  BridgeParts parts_;
  ConnectionsSource& source_;
  std::vector<ConnectionRow> shown_;
  ListModel<ConnectionCardRow> rows_;
  QString found_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

// What the page of connections shows and asks for. Main thread only.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <vector>

#include "App/ConnectionsPage.h"
#include "EdgeBridges.h"

namespace ostrel {

class ConnectionsBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowModel* rows READ rows CONSTANT)
  Q_PROPERTY(QString message READ message NOTIFY changed)
  Q_PROPERTY(QString executable READ executable WRITE setExecutable NOTIFY changed)
  Q_PROPERTY(QString foundExecutable READ foundExecutable NOTIFY changed)
  Q_PROPERTY(QString session READ session WRITE setSession NOTIFY changed)

 public:
  ConnectionsBridge(BridgeParts parts, ConnectionsSource& source);

  RowModel* rows() { return &rows_; }
  QString message() const;  // what was asked of the person last; often empty
  QString executable() const;
  QString foundExecutable() const { return found_; }  // in use while none is chosen; may be empty
  QString session() const;
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
  RowModel rows_{{"title", "state", "note", "light", "buttons"}};
  QString found_;
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

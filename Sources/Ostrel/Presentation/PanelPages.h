// The panel's pages: `panelPages` is the table in which each has its row, and all that a page needs beside
// its own files. Main thread only.
#pragma once

#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQmlIntegration>
#include <memory>
#include <vector>

#include "App/ConnectionsPage.h"
#include "Client/OpenRequests.h"
#include "EdgeBridges.h"

namespace ostrel {

struct PanelPage {
  RailPage page;
  QString title;  // its heading
  // The component that shows it, as `viewUrl` names it. It is given `title` and `bridge`, and is there only
  // while the page is open.
  QUrl view;
  std::unique_ptr<QObject> bridge;  // keeps what the person has entered
};

// What the pages ask of the core beside the model.
struct PageSources {
  ConnectionsSource& connections;  // all of them outlive the pages
  MainLoop& loop;
  RequestSource& requests;
};

// The first one stands in for a page that the program does not have.
std::vector<PanelPage> panelPages(const BridgeParts& parts, PageSources sources);

// The panel: the page that is open.
class PanelBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(QString title READ title NOTIFY pageChanged)
  Q_PROPERTY(QUrl view READ view NOTIFY pageChanged)
  Q_PROPERTY(QObject* page READ page NOTIFY pageChanged)

 public:
  // At least one page.
  PanelBridge(const InterfaceState& shown, std::vector<PanelPage> pages);

  QString title() const { return open().title; }
  QUrl view() const { return open().view; }
  QObject* page() const { return open().bridge.get(); }  // what its view is given as its bridge

 Q_SIGNALS:
  void pageChanged();

 private:
  const PanelPage& open() const;

  const InterfaceState& shown_;
  const std::vector<PanelPage> pages_;
  Subscription page_;
};

}  // namespace ostrel

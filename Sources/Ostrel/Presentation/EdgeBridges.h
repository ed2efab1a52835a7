// What the handle and the rail show and ask for: one object for each of the two views. Main thread only.
//
// A bridge holds no state of its own: it reads the model when that has changed, and hands on what a view asks
// for. Lights go to the views as the numbers of `AgentLight`.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <functional>
#include <vector>

#include "App/EdgeState.h"
#include "App/OstrelModel.h"
#include "Platform/Preferences.h"
#include "RowModel.h"

namespace ostrel {

// What every bridge works on. `menu` opens the menu of the edge at the pointer.
struct BridgeParts {
  OstrelModel& model;
  EdgeState& edge;
  const Screens& screens;
  const Preferences& preferences;
  std::function<void()> menu;
};

class NotchBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowModel* lights READ lights CONSTANT)
  Q_PROPERTY(int more READ more NOTIFY changed)
  Q_PROPERTY(QString summary READ summary NOTIFY changed)
  Q_PROPERTY(bool away READ away NOTIFY awayChanged)

 public:
  explicit NotchBridge(BridgeParts parts);

  RowModel* lights() { return &lights_; }
  int more() const { return more_; }  // agents without a light there
  QString summary() const { return summary_; }
  bool away() const { return *parts_.edge.shown().notchAway; }
  // After a change of the model or of a setting.
  void refresh();

  Q_INVOKABLE void entered() { parts_.edge.pointerEnteredNotch(); }
  Q_INVOKABLE void open() { parts_.edge.openPage(RailPage::agents); }
  Q_INVOKABLE void menu() { parts_.menu(); }

 Q_SIGNALS:
  void changed();
  void awayChanged();

 private:
  BridgeParts parts_;
  RowModel lights_{{"light"}};
  int more_ = 0;
  QString summary_;
  std::vector<Subscription> subscriptions_;
};

class RailBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowModel* items READ items CONSTANT)
  Q_PROPERTY(int contentHeight READ contentHeight NOTIFY changed)
  Q_PROPERTY(int offset READ offset NOTIFY changed)
  Q_PROPERTY(bool expanded READ expanded NOTIFY expandedChanged)

 public:
  explicit RailBridge(BridgeParts parts);

  RowModel* items() { return &items_; }
  int contentHeight() const { return contentHeight_; }  // points, of what there is to show
  int offset() const { return offset_; }                // from the window's top, so that it stands centred
  bool expanded() const { return *parts_.edge.shown().railExpanded; }
  void refresh();

  Q_INVOKABLE int entranceDelay(int index) const;  // milliseconds
  Q_INVOKABLE void hover(const QString& key, bool inside);
  Q_INVOKABLE void left() { parts_.edge.leaveRail(); }  // the whole of it
  Q_INVOKABLE void open(const QString& key);            // an agent's row, or one that stands for the list
  Q_INVOKABLE void menu() { parts_.menu(); }

 Q_SIGNALS:
  void changed();
  void expandedChanged();

 private:
  BridgeParts parts_;
  RowModel items_{{"kind", "place", "extent", "light", "mark", "label"}};
  int contentHeight_ = 0;
  int offset_ = 0;
  QString hovered_;  // the key of the row below the pointer
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

// What the handle and the rail show and ask for: one object for each of the two views. Main thread only.
//
// A bridge holds no state of its own: it reads the model when that has changed, and hands on what a view asks
// for. Lights go to the views as the numbers of `AgentLight`.
#pragma once

#include <QObject>
#include <QPointF>
#include <QtQmlIntegration>
#include <functional>
#include <vector>

#include "App/EdgeState.h"
#include "App/OstrelModel.h"
#include "ListModel.h"
#include "Platform/Preferences.h"

namespace ostrel {

// What every bridge works on. `menu` opens the menu of the edge at the pointer.
struct BridgeParts {
  OstrelModel& model;
  EdgeState& edge;
  const Screens& screens;
  const Preferences& preferences;
  std::function<void()> menu;
};

// A light on the handle.
struct NotchRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(int light MEMBER light)

 public:
  QString key;    // its place, from the top
  int light = 0;  // the number of its `AgentLight`
  bool operator==(const NotchRow&) const = default;
};

class NotchBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* lights READ lights CONSTANT)
  Q_PROPERTY(int more READ more NOTIFY changed)
  Q_PROPERTY(QString summary READ summary NOTIFY changed)
  Q_PROPERTY(bool away READ away NOTIFY awayChanged)
  Q_PROPERTY(bool breathing READ breathing NOTIFY breathingChanged)

 public:
  explicit NotchBridge(BridgeParts parts);

  ListModel<NotchRow>* lights() { return &lights_; }  // the most urgent first
  int more() const { return more_; }                  // agents without a light there
  QString summary() const { return summary_; }        // the lights in words, for screen readers
  // The handle has slid off, since the rail is there.
  bool away() const { return *parts_.edge.shown().notchAway; }
  // The lights that need the person move.
  bool breathing() const { return *parts_.edge.shown().breathing; }
  // After a change of the model or of a setting.
  void refresh();

  Q_INVOKABLE void entered() { parts_.edge.pointerEnteredNotch(); }
  Q_INVOKABLE void open() { parts_.edge.openPage(RailPage::agents); }
  Q_INVOKABLE void menu() { parts_.menu(); }

 Q_SIGNALS:
  void changed();
  void awayChanged();
  void breathingChanged();

 private:
  BridgeParts parts_;
  ListModel<NotchRow> lights_;
  int more_ = 0;
  QString summary_;
  std::vector<Subscription> subscriptions_;
};

// A row of the rail: an agent, or what stands for those without a row.
struct RailRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(QString kind MEMBER kind)
  Q_PROPERTY(int place MEMBER place)
  Q_PROPERTY(int extent MEMBER extent)
  Q_PROPERTY(int light MEMBER light)
  Q_PROPERTY(QString glyph MEMBER glyph)
  Q_PROPERTY(QString letter MEMBER letter)
  Q_PROPERTY(QString mark MEMBER mark)
  Q_PROPERTY(QString label MEMBER label)

 public:
  QString key;     // the agent's id, of other rows their kind
  QString kind;    // "agent", "more" (the list, and how many have no row) or "list" (each has one)
  int place = 0;   // points below the rail's upper end
  int extent = 0;  // its height, in points
  int light = 0;   // the number of its `AgentLight`
  QString glyph;   // its provider: "claude", "codex", "other"
  QString letter;  // the first one of its provider
  QString mark;    // the first one of its project, or "+3"; may be empty
  QString label;   // the row in words, for screen readers
  bool operator==(const RailRow&) const = default;
};

class RailBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* items READ items CONSTANT)
  Q_PROPERTY(int contentHeight READ contentHeight NOTIFY changed)
  Q_PROPERTY(int offset READ offset NOTIFY changed)
  Q_PROPERTY(bool expanded READ expanded NOTIFY expandedChanged)
  Q_PROPERTY(bool breathing READ breathing NOTIFY breathingChanged)

 public:
  explicit RailBridge(BridgeParts parts);

  ListModel<RailRow>* items() { return &items_; }       // from top to bottom
  int contentHeight() const { return contentHeight_; }  // points, of what there is to show
  int offset() const { return offset_; }                // from the window's top, so that it stands centred
  // The rows are in, or on their way.
  bool expanded() const { return *parts_.edge.shown().railExpanded; }
  bool breathing() const { return *parts_.edge.shown().breathing; }
  void refresh();

  Q_INVOKABLE int entranceDelay(int index) const;  // milliseconds
  Q_INVOKABLE void hover(const QString& key, bool inside);
  // The pointer rests on that row, whose left end is at `place` on the screen: a tooltip says what it is,
  // unless a preview does.
  Q_INVOKABLE void rest(const QString& key, QPointF place);
  Q_INVOKABLE void left() { parts_.edge.leaveRail(); }  // the whole of it
  Q_INVOKABLE void open(const QString& key);            // an agent's row, or one that stands for the list
  Q_INVOKABLE void menu() { parts_.menu(); }

 Q_SIGNALS:
  void changed();
  void expandedChanged();
  void breathingChanged();

 private:
  BridgeParts parts_;
  ListModel<RailRow> items_;
  int contentHeight_ = 0;
  int offset_ = 0;
  QString hovered_;  // the key of the row below the pointer
  std::vector<Subscription> subscriptions_;
};

}  // namespace ostrel

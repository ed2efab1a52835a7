// The real state of the edge over agents and a desktop of the test's own, for the real views over it, without
// a display.
#pragma once

#include <QApplication>
#include <QMouseEvent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "App/OstrelSetting.h"
#include "Appearance.h"
#include "Offscreen.h"
#include "PanelPages.h"
#include "SelectorBridge.h"
#include "Support/FakeAgents.h"
#include "Support/FakeDesktop.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"
#include "UtilityPanel.h"

namespace ostrel {

using namespace std::chrono_literals;

// What agents ask.
struct Asked final : RequestSource {
  std::vector<OpenRequest> open;
  ChangeSignal changes;

  std::vector<OpenRequest> list() override { return open; }
  std::vector<OpenRequest> of(const HerdrAgent&) override { return {}; }
  std::optional<Controls> controls(const HerdrAgent&) override { return std::nullopt; }
  void answer(const std::string&, const RequestAnswer&) override {}
  void openLink(const std::string&) override {}
  Subscription observe(ChangeSignal::Observer observer) override {
    return changes.observe(std::move(observer));
  }
};

class EdgeViewsTest : public testing::Test {
 protected:
  EdgeViewsTest() {
    preferences_.registerDefaults(OstrelSetting::defaults());
    for (const char* pane : {"a", "b", "c"}) {
      agents_.agents.push_back(agentOf(pane));
      agents_.lights[pane] = AgentLight::idle;
    }
    edge_.start();
  }
  // A view at its window's size, on the screen.
  void open(QQuickView& view, const char* component, QObject& bridge, const Rect& frame) {
    view.setGeometry(0, 0, frame.width, frame.height);
    loadView(view, QLatin1String(component), bridge);
    view.show();
    settle();
  }
  static void settle() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
  }
  void move(QQuickView& view, QPointF place) {
    QMouseEvent event(QEvent::MouseMove, place, view.mapToGlobal(place), Qt::NoButton, Qt::NoButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(&view, &event);
    settle();
  }
  static void childrenNamed(QQuickItem* item, const QString& name, QList<QQuickItem*>& found) {
    if (item->objectName().startsWith(name) && item->isVisible()) found.append(item);
    for (QQuickItem* child : item->childItems()) childrenNamed(child, name, found);
  }
  // Where the middles of the rows are, from the top.
  static std::vector<QPointF> rows(QQuickView& view, const char* name) {
    QList<QQuickItem*> found;
    childrenNamed(view.rootObject(), QLatin1String(name), found);
    std::vector<QPointF> places;
    for (QQuickItem* row : found)
      places.push_back(row->mapToScene(QPointF(row->width() / 2, row->height() / 2)));
    std::ranges::sort(places, {}, &QPointF::y);
    return places;
  }
  static QStringList texts(QQuickView& view, const char* name) {
    QList<QQuickItem*> found;
    childrenNamed(view.rootObject(), QLatin1String(name), found);
    QStringList all;
    for (QQuickItem* item : found) all.append(item->property("text").toString());
    return all;
  }
  BridgeParts parts() {
    return {model_, edge_, desktop_, preferences_, [] {}};
  }
  std::vector<PanelPage> agentPage() {
    std::vector<PanelPage> pages;
    pages.push_back({RailPage::agents, QStringLiteral("Agents"),
                     viewUrl(QStringLiteral("AgentSelectorPanel")),
                     std::make_unique<SelectorBridge>(parts(), SelectorBridge::Sources{loop_, asked_})});
    return pages;
  }

  QApplication& application_ = offscreen();
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  FakeAgents agents_;
  OstrelModel model_{agents_};
  Asked asked_;
  FakeDesktop desktop_;
  std::string opened_;
  InterfaceState shown_;
  EdgeState edge_{
      {loop_, desktop_, desktop_, desktop_, preferences_},
      model_,
      shown_,
      {[this](const HerdrAgent& agent, bool seen) { opened_ += agent.paneID + (seen ? "!" : ""); }, [] {}}};
  QQmlEngine engine_;
  Appearance appearance_{engine_};
};

}  // namespace ostrel

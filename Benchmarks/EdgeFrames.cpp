// What the windows at the edge cost in time, on a display of its own: from a change of an agent's light to
// the repainted handle, from asking for the list to its first frame, and the frames of a list of 200 agents
// that scrolls and is sorted anew, beside a bare list of as many rows. A frame's cost is the main thread's
// processor time since the frame before; a dropped one took longer than the screen's interval.
//   ostrel-edge-frames
#include <QApplication>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickView>
#include <QTimer>
#include <algorithm>

#include <fmt/format.h>

#include "App/EdgeState.h"
#include "Appearance.h"
#include "DesktopScreens.h"
#include "NestedLoop.h"
#include "PanelPages.h"
#include "RestingMemory.h"
#include "SampleAgents.h"
#include "SampleConnections.h"
#include "SampleRequests.h"
#include "UtilityPanels.h"
#include "WindowFrames.h"

namespace {

using namespace ostrel;
using namespace ostrel::bench;

constexpr std::size_t kAgents = 200;

// Scrolls a list to its end and back, some pixels a frame.
void scroll(QQuickWindow& window, QQuickItem& list, int frames) {
  constexpr double kStep = 37;  // fast, as a hand on a touch pad
  double step = kStep;
  QEventLoop loop;
  int left = frames;
  const auto connection = QObject::connect(&window, &QQuickWindow::frameSwapped, &loop, [&] {
    if (--left == 0) loop.quit();
    const double end = list.property("contentHeight").toDouble() - list.height();
    const double next = list.property("contentY").toDouble() + step;
    if (next > end || next < 0) step = -step;
    list.setProperty("contentY", std::clamp(next, 0.0, end));
  });
  QTimer::singleShot(60'000, &loop, &QEventLoop::quit);
  list.setProperty("contentY", 1.0);
  loop.exec();
  QObject::disconnect(connection);
}

// The rival: rows of a rectangle and two texts, of a list that knows nothing else.
constexpr char kBareList[] = R"(
import QtQuick
ListView {
    model: 228
    clip: true
    delegate: Item {
        required property int index
        width: ListView.view.width
        height: 54
        Rectangle { anchors.fill: parent; anchors.margins: 2; radius: 10; color: "#eeeeee" }
        Text { x: 40; y: 8; text: "Row number " + parent.index; font.pixelSize: 13 }
        Text { x: 40; y: 30; text: "subtitle of row " + parent.index; font.pixelSize: 11 }
    }
})";

class Edge {
 public:
  Edge() {
    appearance_.setReducedMotion(true);
    panels_[EdgeWindow::notch].setView(QStringLiteral("EdgeNotchView"), notch_);
    panels_[EdgeWindow::rail].setView(QStringLiteral("RailView"), rail_);
    panels_[EdgeWindow::panel].setView(QStringLiteral("OstrelView"), panel_);
    for (std::size_t i = 0; i < kAgents; ++i) samples_.setLight(i, AgentLight::idle);
    edge_.start();
    runFor(500);
  }
  ~Edge() { panels_.unload(); }

  void measure() {
    print("light to the repainted handle", lights(), 100);
    print("list, first time, to its first frame", opened(true), 100);
    print("list, view kept, to its first frame", opened(false), 100);
    UtilityPanel& panel = panels_[EdgeWindow::panel];
    appearance_.setReducedMotion(false);
    edge_.openPage(RailPage::agents);
    runFor(500);
    auto* const list = panel.rootObject()->findChild<QQuickItem*>(QStringLiteral("agentList"));
    const Frames bare = bareScroll();
    const Frames ours = watch(panel, [&] { scroll(panel, *list, kFrames); });
    print("a list of 200 agents scrolls", ours);
    print("a bare list of as many rows scrolls", bare);
    fmt::print("{:<44} {:.2f}\n", "ratio of medians", ours.at(0.5) / bare.at(0.5));
    list->setProperty("contentY", 0.0);
    print("a keystroke to the filtered list", typed(panel), 20);
    print("a list of 200 agents is sorted anew", watch(panel, [&] { sortAnew(); }));
    list->setProperty("contentY", 3000.0);
    print("the same, from further down", watch(panel, [&] { sortAnew(); }));
    print("light to the repainted handle, list open", lights(), 100);
  }

 private:
  static constexpr int kFrames = 600;

  Frames lights() {
    Frames times;
    samples_.setLight(0, AgentLight::idle);
    samples_.tell();
    for (int round = 0; round < 40; ++round) {
      runFor(120);
      // Another change just before: this one waits for the throttle.
      samples_.setLight(kAgents - 1, round % 2 == 0 ? AgentLight::done : AgentLight::idle);
      samples_.tell();
      runFor(5);
      times.costs.push_back(untilFrame(panels_[EdgeWindow::notch], [&] {
        samples_.setLight(0, round % 2 == 0 ? AgentLight::done : AgentLight::idle);
        samples_.tell();
      }));
    }
    return times;
  }

  Frames opened(bool anew) {
    Frames times;
    for (int round = 0; round < 15; ++round) {
      if (anew) {
        panels_[EdgeWindow::panel].rest();
        engine_.collectGarbage();
        engine_.trimComponentCache();
        memory::giveBack();
      }
      runFor(50);
      times.costs.push_back(
          untilFrame(panels_[EdgeWindow::panel], [&] { edge_.openPage(RailPage::agents); }));
      runFor(300);
      edge_.hidePanel();
      runFor(200);
    }
    return times;
  }

  // Words letter by letter, and back to all agents.
  Frames typed(UtilityPanel& panel) {
    Frames times;
    auto* const field = panel.rootObject()->findChild<QQuickItem*>(QStringLiteral("filterField"));
    for (int round = 0; round < 5; ++round) {
      for (const char* text : {"d", "dr", "dra", "draf", "draft", "dra", "d", "", "x", ""}) {
        runFor(60);
        times.costs.push_back(untilFrame(panel, [&] {
          QMetaObject::invokeMethod(field, "edited", Q_ARG(QString, QString::fromLatin1(text)));
        }));
      }
    }
    return times;
  }

  Frames bareScroll() {
    QQuickView window(&engine_, nullptr);
    QQmlComponent component(&engine_);
    component.setData(kBareList, {});
    auto* const list = qobject_cast<QQuickItem*>(component.create());
    window.resize(416, 464);
    window.show();
    list->setParentItem(window.contentItem());
    list->setSize(window.size());
    runFor(300);
    return watch(window, [&] { scroll(window, *list, kFrames); });
  }

  void sortAnew() {
    for (int round = 0; round < 30; ++round) {
      for (std::size_t i = 0; i < kAgents; ++i) {
        const bool urgent = (i * 7 + static_cast<std::size_t>(round) * 13) % 11 == 0;
        samples_.setLight(i, urgent ? AgentLight::needsYou : AgentLight::done);
      }
      samples_.tell();
      runFor(250);
    }
  }

  EpollLoop loop_;
  NestedLoop nested_{loop_};
  Defaults preferences_;
  NoPointer pointer_;
  SampleAgents samples_{kAgents};
  OstrelModel model_{samples_};
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  UtilityPanels panels_{loop_, engine_, appearance_, false};
  DesktopScreens screens_{loop_};
  InterfaceState shown_;
  EdgeState edge_{{loop_, panels_, screens_, pointer_, preferences_},
                  model_,
                  shown_,
                  {[](const HerdrAgent&, bool) {}, [] {}}};
  BridgeParts parts_{model_, edge_, screens_, preferences_, [] {}};
  NotchBridge notch_{parts_};
  RailBridge rail_{parts_};
  SampleConnections facts_{false};
  SampleRequests asks_;
  PanelBridge panel_{shown_, panelPages(parts_, {facts_, loop_, asks_})};
};

}  // namespace

int main(int argc, char** argv) {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  const QApplication application(argc, argv);
  fmt::print("{:<44} {:>13} {:>11} {:>11} {:>11}\n", "windows at the edge", "", "median", "99 %", "longest");
  Edge().measure();
  return 0;
}

#include "Snapshots.h"

#include <QApplication>
#include <QImage>
#include <QPainter>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>
#include <utility>
#include <vector>

#include "App/EdgeState.h"
#include "App/OstrelSetting.h"
#include "Appearance.h"
#include "PanelBridges.h"
#include "Runtime/Failure.h"
#include "SampleAgents.h"
#include "UtilityPanel.h"

namespace ostrel::snapshots {

namespace {

constexpr Screen kScreen{{0, 0, 1280, 800}, {0, 0, 1280, 800}};
constexpr Size kCard{416, 272};

// A desktop of one screen, on which windows have places and nothing else.
class StillDesktop final : public EdgeWindows, public Screens, public Pointer {
 public:
  const Rect& frame(EdgeWindow window) const { return frames_[static_cast<std::size_t>(window)]; }

  void place(EdgeWindow window, const Rect& frame) override {
    frames_[static_cast<std::size_t>(window)] = frame;
  }
  void show(EdgeWindow, bool) override {}
  void hide(EdgeWindow) override {}
  void animate(EdgeWindow, const WindowMotion&) override {}
  void takeClicks(EdgeWindow, bool) override {}
  bool isKey(EdgeWindow) const override { return false; }
  bool hasDialog() const override { return false; }
  bool reducedMotion() const override { return true; }
  std::optional<Screen> main() const override { return kScreen; }
  Registration follow(Moved) override { return {}; }

 private:
  Rect frames_[4];
};

class Studio {
 public:
  Studio(MainLoop& loop, Preferences& preferences, std::size_t agents, bool dark)
      : samples_(agents),
        model_(loop, samples_.source()),
        edge_({loop, desktop_, desktop_, desktop_, preferences}, model_,
              {[](const HerdrAgent&, bool) {}, [] {}}),
        parts_{model_, edge_, desktop_, preferences, [] {}},
        notch_(parts_),
        rail_(parts_),
        selector_(parts_),
        agent_(parts_),
        backdrop_(dark ? QColor(0x23, 0x2a, 0x35) : QColor(0xd5, 0xdd, 0xe8)) {
    appearance_.setDark(dark);
    appearance_.setReducedMotion(true);
    appearance_.setComposited(true);
    edge_.start();
    edge_.resizeAgent(kCard);
    model_.railExpanded.set(true);
    if (agents > 0) {
      model_.moveSelection(true);
      model_.moveSelection(true);
      edge_.openAgent(samples_.agents().front());
      agent_.show(samples_.agents().front());
    }
  }

  QImage notch() { return view("EdgeNotchView", notch_, EdgeWindow::notch); }
  QImage rail() { return view("RailView", rail_, EdgeWindow::rail); }
  QImage panel() { return view("OstrelView", selector_, EdgeWindow::panel); }
  QImage agent() { return view("HerdrOutputView", agent_, EdgeWindow::agent); }

  // Everything at once, where it stands on the screen.
  QImage edge() {
    const Rect& from = desktop_.frame(EdgeWindow::agent);
    const int margin = 24;
    const int top = from.y - margin;
    const Rect& list = desktop_.frame(EdgeWindow::panel);
    QImage picture(kScreen.frame.width - from.x + margin, list.bottom() - top + margin, QImage::Format_RGB32);
    picture.fill(backdrop_);
    QPainter painter(&picture);
    const auto add = [&](EdgeWindow window, const QImage& image) {
      const Rect& frame = desktop_.frame(window);
      painter.drawImage(frame.x - from.x + margin, frame.y - top, image);
    };
    add(EdgeWindow::agent, agent());
    add(EdgeWindow::rail, rail());
    add(EdgeWindow::panel, panel());
    return picture;
  }

 private:
  QImage view(const char* component, QObject& bridge, EdgeWindow window) {
    QQuickView stage(&engine_, nullptr);
    stage.setColor(backdrop_);
    loadView(stage, QLatin1String(component), bridge);
    const Rect& frame = desktop_.frame(window);
    stage.resize(frame.width, frame.height);
    stage.show();
    QCoreApplication::processEvents();
    return stage.grabWindow();
  }

  SampleAgents samples_;
  StillDesktop desktop_;
  OstrelModel model_;
  EdgeState edge_;
  BridgeParts parts_;
  NotchBridge notch_;
  RailBridge rail_;
  SelectorBridge selector_;
  AgentBridge agent_;
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  QColor backdrop_;
};

}  // namespace

void render(const std::filesystem::path& folder, MainLoop& loop, Preferences& preferences) {
  preferences.registerDefaults(OstrelSetting::defaults());
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  qputenv("QT_QPA_PLATFORM", "offscreen");
  char name[] = "Ostrel";
  char* arguments[] = {name, nullptr};
  int count = 1;
  const QApplication application(count, arguments);
  for (const bool dark : {false, true}) {
    Studio studio(loop, preferences, 7, dark);
    Studio quiet(loop, preferences, 0, dark);
    const std::pair<const char*, QImage> pictures[] = {
        {"edge", studio.edge()},      {"notch", studio.notch()},     {"rail", studio.rail()},
        {"panel", studio.panel()},    {"agent", studio.agent()},     {"panel-empty", quiet.panel()},
        {"rail-empty", quiet.rail()}, {"notch-empty", quiet.notch()}};
    for (const auto& [view, picture] : pictures) {
      const std::filesystem::path file = folder / (std::string(view) + (dark ? "-dark.png" : "-light.png"));
      if (!picture.save(QString::fromStdString(file.string())))
        throw Failure("the picture could not be written: " + file.string());
    }
  }
}

}  // namespace ostrel::snapshots

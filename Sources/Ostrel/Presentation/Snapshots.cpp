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
#include "ConversationBridge.h"
#include "PanelPages.h"
#include "Runtime/Failure.h"
#include "SampleAgents.h"
#include "SampleConnections.h"
#include "SampleConversation.h"
#include "SampleRequests.h"
#include "UtilityPanel.h"

namespace ostrel::snapshots {

namespace {

constexpr Screen kScreen{{0, 0, 1280, 800}, {0, 0, 1280, 800}};

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

class NoUrls final : public UrlOpener {
 public:
  void open(const std::string&) override {}
};

// What is done to a view before its picture is taken.
using Touch = std::function<void(QQuickItem&)>;

// A list finds its end in steps.
void settle() {
  for (int step = 0; step < 4; ++step) QCoreApplication::processEvents();
}

class Studio {
 public:
  Studio(MainLoop& loop, Preferences& preferences, std::size_t agents, bool dark)
      : samples_(agents),
        model_(samples_),
        edge_({loop, desktop_, desktop_, desktop_, preferences}, model_, edgeShown_,
              {[](const HerdrAgent&, bool) {}, [] {}}),
        parts_{model_, edge_, desktop_, preferences, [] {}},
        notch_(parts_),
        rail_(parts_),
        facts_(agents > 0),
        panel_(edgeShown_, panelPages(parts_, {facts_, loop, asks_})),
        open_(samples_, asks_, preferences),
        loop_(loop),
        conversation_(loop, pool_, parts_, {open_, open_, asks_, urls_, {}}),
        backdrop_(dark ? QColor(0x23, 0x2a, 0x35) : QColor(0xd5, 0xdd, 0xe8)),
        surface_(dark ? QColor(0x1e, 0x21, 0x28) : QColor(0xf4, 0xf6, 0xf9)) {
    appearance_.setDark(dark);
    appearance_.setReducedMotion(true);
    appearance_.setComposited(true);
    edge_.start();
    edgeShown_.railExpanded.set(true);
    if (agents > 0) {
      model_.moveSelection(true);
      model_.moveSelection(true);
      edge_.openAgent(samples_.agents().front());
      show(samples_.agents().front());
    }
  }

  void show(const HerdrAgent& agent) {
    open_.show(agent);
    conversation_.show(agent);
  }

  // The first agent asks; the list shows what is left of that filter.
  QImage list(const char* asked, AgentFilter filter = {}, const Touch& touch = {}) {
    if (!samples_.agents().empty()) asks_.askFor(samples_.agents().front().id());
    asks_.ask(asked);
    model_.setFilter(std::move(filter));
    QImage picture = panel(touch);
    model_.setFilter({});
    asks_.ask({});
    return picture;
  }

  // Of many agents only the last one waits.
  void onlyTheLastWaits() {
    const std::size_t last = samples_.agents().size() - 1;
    for (std::size_t i = 0; i < last; ++i) samples_.setLight(i, i % 3 ? AgentLight::idle : AgentLight::done);
    samples_.setLight(last, AgentLight::needsYou);
    samples_.tell();
  }

  QImage notch() { return view("EdgeNotchView", notch_, EdgeWindow::notch); }
  QImage rail() { return view("RailView", rail_, EdgeWindow::rail); }
  QImage panel(const Touch& touch = {}) { return view("OstrelView", panel_, EdgeWindow::panel, touch); }
  QImage connections() {
    edge_.openPage({PanelTab::connections, false});
    QImage picture = panel();
    edge_.openPage(RailPage::agents);
    return picture;
  }
  QImage agent(const Touch& touch = {}) {
    return view("HerdrOutputView", conversation_, EdgeWindow::agent, touch);
  }

  // The conversation, as it looks while it is used.
  std::vector<std::pair<std::string, QImage>> conversations() {
    std::vector<std::pair<std::string, QImage>> pictures;
    pictures.emplace_back("agent", agent());
    pictures.emplace_back("agent-above",
                          agent([](QQuickItem& view) { QMetaObject::invokeMethod(&view, "toStart"); }));
    pictures.emplace_back("agent-find", agent([](QQuickItem& view) {
                            QMetaObject::invokeMethod(&view, "find");
                            view.findChild<QQuickItem*>(QStringLiteral("findField"))
                                ->setProperty("text", QStringLiteral("index"));
                          }));
    conversation_.find({});
    pictures.emplace_back("agent-menu", agent([](QQuickItem& view) {
                            QMetaObject::invokeMethod(&view, "openMenu", Q_ARG(double, 330),
                                                      Q_ARG(double, 60),
                                                      Q_ARG(QString, QStringLiteral("sample-1#0")),
                                                      Q_ARG(QString, QString()), Q_ARG(QString, QString()));
                          }));
    for (const char* asked : {"bash", "question", "codex-files"}) {
      asks_.ask(asked);
      conversation_.show(samples_.agents().front());
      pictures.emplace_back(std::string("agent-asks-") + asked, agent());
    }
    asks_.ask({});
    open_.content().transcript.set({});
    open_.content().transcriptNotice.set("No conversation messages available yet.");
    conversation_.show(samples_.agents().front());
    pictures.emplace_back("agent-empty", agent());
    show(samples_.pane());
    pictures.emplace_back("agent-terminal", agent());
    show(samples_.agents().front());
    return pictures;
  }

  // What an agent asks, as high as it is, in a window of that width. With `entered` the person has begun to
  // answer; nothing where the sample knows no such thing.
  QImage card(const std::string& name, bool entered) {
    SampleRequests samples(name);
    RequestsBridge requests(loop_, samples, {});
    requests.show(samples_.agents().front());
    if (entered && !samples.enter(name, requests)) return {};
    QQuickView stage(&engine_, nullptr);
    stage.setColor(surface_);
    loadView(stage, QStringLiteral("RequestCards"), requests);
    constexpr int kMargin = 16;
    constexpr int kWidth = 504;
    stage.resize(kWidth, kScreen.frame.height);
    stage.show();
    settle();
    stage.grabWindow();  // a view's parts are laid out as it is drawn
    const QImage view = stage.grabWindow();
    const int height = static_cast<int>(stage.rootObject()->implicitHeight());
    QImage picture(kWidth + 2 * kMargin, height + 2 * kMargin, QImage::Format_RGB32);
    picture.fill(surface_);
    QPainter(&picture).drawImage(kMargin, kMargin, view, 0, 0, kWidth, height);
    return picture;
  }
  std::vector<std::pair<std::string, QImage>> cards() {
    std::vector<std::pair<std::string, QImage>> pictures;
    for (const std::string& sample : SampleRequests::names()) {
      pictures.emplace_back("card-" + sample, card(sample, false));
      if (QImage entered = card(sample, true); !entered.isNull())
        pictures.emplace_back("card-" + sample + "-entered", std::move(entered));
    }
    return pictures;
  }

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
  QImage view(const char* component, QObject& bridge, EdgeWindow window, const Touch& touch = {}) {
    QQuickView stage(&engine_, nullptr);
    stage.setColor(backdrop_);
    loadView(stage, QLatin1String(component), bridge);
    const Rect& frame = desktop_.frame(window);
    stage.resize(frame.width, frame.height);
    stage.show();
    settle();
    if (touch) {
      touch(*stage.rootObject());
      settle();
    }
    return stage.grabWindow();
  }

  SampleAgents samples_;
  StillDesktop desktop_;
  OstrelModel model_;
  InterfaceState edgeShown_;
  EdgeState edge_;
  BridgeParts parts_;
  NotchBridge notch_;
  RailBridge rail_;
  SampleConnections facts_;
  SampleRequests asks_;
  PanelBridge panel_;
  BackgroundPool pool_;
  SampleConversation open_;
  NoUrls urls_;
  MainLoop& loop_;
  ConversationBridge conversation_;
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  QColor backdrop_;
  QColor surface_;  // of the window that cards are in
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
    Studio single(loop, preferences, 1, dark);
    Studio some(loop, preferences, 11, dark);
    Studio crowd(loop, preferences, 61, dark);
    Studio lone(loop, preferences, 61, dark);
    lone.onlyTheLastWaits();
    const Touch scrolled = [](QQuickItem& view) {
      view.findChild<QQuickItem*>(QStringLiteral("agentList"))->setProperty("contentY", 700.0);
    };
    std::vector<std::pair<std::string, QImage>> pictures = studio.conversations();
    for (auto& card : studio.cards()) pictures.push_back(std::move(card));
    pictures.insert(pictures.end(), {{"edge", studio.edge()},
                                     {"notch", studio.notch()},
                                     {"rail", studio.rail()},
                                     {"panel", studio.panel()},
                                     {"panel-empty", quiet.panel()},
                                     {"connections", studio.connections()},
                                     {"connections-empty", quiet.connections()},
                                     {"rail-empty", quiet.rail()},
                                     {"notch-empty", quiet.notch()},
                                     {"notch-crowd", lone.notch()},
                                     {"rail-crowd", lone.rail()},
                                     {"list-one", single.list("bash")},
                                     {"list-some", some.list("question")},
                                     {"list-crowd", crowd.list("")},
                                     {"list-crowd-scrolled", crowd.list("", {}, scrolled)},
                                     {"list-crowd-one-waits", lone.list("")},
                                     {"list-filtered", crowd.list("", {"ledger flaky", {}})},
                                     {"list-chosen", crowd.list("", {{}, AgentLight::done})},
                                     {"list-nobody", crowd.list("", {"zebra", {}})}});
    for (const auto& [view, picture] : pictures) {
      const std::filesystem::path file = folder / (view + (dark ? "-dark.png" : "-light.png"));
      if (!picture.save(QString::fromStdString(file.string())))
        throw Failure("the picture could not be written: " + file.string());
    }
  }
}

}  // namespace ostrel::snapshots

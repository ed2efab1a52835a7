#include "AppDelegate.h"

#include <QCursor>
#include <QDBusConnection>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QPluginLoader>
#include <QQuickWindow>
#include <QScreen>
#include <clocale>
#include <random>
#include <utility>

#include <fmt/format.h>

#include "App/Launch.h"
#include "Runtime/Failure.h"
#include "TerminalWindow.h"
#include "Words.h"
#include "X11Windows.h"

namespace ostrel {

namespace {

constexpr Duration kHideTime = std::chrono::hours(2);

}  // namespace

DesktopApplication::DesktopApplication(const Environment& environment)
    : wayland_(!environment.variable("WAYLAND_DISPLAY").value_or("").empty()) {
  const std::string display = environment.variable("DISPLAY").value_or("");
  // Qt ends the program when it fails to start, so we look first.
  if (!x11::reachable(QByteArray::fromStdString(display)))
    throw Failure(fmt::format("the display {} can't be reached", display));
  QPluginLoader platform(QLibraryInfo::path(QLibraryInfo::PluginsPath) +
                         QStringLiteral("/platforms/libqxcb.so"));
  if (!platform.load())
    throw Failure(fmt::format("Qt can't use the display: {}", platform.errorString().toStdString()));
  // Under Wayland windows can't choose their place; those of X11 can.
  qputenv("QT_QPA_PLATFORM", "xcb");
  // Looking for a bus that isn't there would start one.
  const auto runtime = environment.variable("XDG_RUNTIME_DIR");
  if (!environment.variable("DBUS_SESSION_BUS_ADDRESS") &&
      !(runtime && QFileInfo::exists(QString::fromStdString(*runtime + "/bus"))))
    qputenv("DBUS_SESSION_BUS_ADDRESS", "disabled:");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);  // a third of the memory of the others
  application_.emplace(count_, arguments_);
  // Qt takes the person's language over for the whole process; numbers in files are none of its business.
  std::setlocale(LC_NUMERIC, "C");
  QApplication::setApplicationName(QStringLiteral("Ostrel"));
  QApplication::setQuitOnLastWindowClosed(false);
}

std::unique_ptr<Desktop> AppDelegate::open(const DesktopParts& parts) {
  return std::make_unique<AppDelegate>(parts);
}

AppDelegate::AppDelegate(DesktopParts parts)
    : parts_(std::move(parts)),
      application_(parts_.environment),
      loop_(parts_.loop),
      samples_(parts_.environment.hasArgument(launch::kPreviewAgents)
                   ? std::make_unique<Samples>(parts_.preferences)
                   : nullptr),
      model_(samples_ ? static_cast<LitSource&>(samples_->agents) : parts_.client.agents(),
             &parts_.preferences),
      terminal_(parts_.pool, parts_.tools, parts_.terminals,
                parts_.environment.folder("XDG_DATA_HOME", ".local/share") / "ostrel"),
      providers_({parts_.loop, parts_.toolPool, parts_.tools, terminal_, parts_.urls}, model_, shown_),
      connections_(providers_, parts_.client.herdr()),
      panels_(parts_.loop, engine_, appearance_, parts_.fixture),
      screens_(parts_.loop),
      input_({parts_.loop, [this] { return pointer(); }, application_.wayland()}),
      edge_({parts_.loop, panels_, screens_, input_, parts_.preferences}, model_, shown_,
            {.select = [this](const HerdrAgent& agent, bool markSeen) { open(agent, markSeen); },
             .stopOutput = [this] { closeConversation(); }}),
      notifications_(parts_.complain),
      player_({parts_.loop, parts_.tools, parts_.complain}),
      sounds_(parts_.loop, player_, std::random_device()()),
      alerts_({parts_.preferences, sounds_, parts_.installed ? &notifications_ : nullptr},
              [this](const HerdrAgent& agent) { edge_.openAgent(agent); }),
      shortcut_({parts_.loop, input_, parts_.preferences}, [this] { edge_.togglePanel(); }),
      status_({.showAgents = [this] { edge_.togglePanel(); },
               .clicked = [this] { edge_.statusItemClicked(); },
               .showConnections = [this] { edge_.openPage({PanelTab::connections, false}); },
               .toggleVisibility = [this] { edge_.toggleVisibility(); },
               .hideForTwoHours = [this] { edge_.hideFor(kHideTime); },
               .quit = [] { QApplication::quit(); },
               .visible = [this] { return edge_.visible(); },
               .opened = [this] { edge_.menuOpened(); },
               .closed = [this] { edge_.menuClosed(); }}),
      notch_(bridgeParts()),
      rail_(bridgeParts()),
      panel_(shown_, panelPages(bridgeParts(), {connections_, parts_.loop, requests()})),
      conversation_(parts_.loop, parts_.pool, bridgeParts(), conversationParts(),
                    [this](HerdrAgent agent) { return findTerminal(std::move(agent)); }) {}

BridgeParts AppDelegate::bridgeParts() {
  return {model_, edge_, screens_, parts_.preferences, [this] { status_.openMenu(); }};
}

AppDelegate::~AppDelegate() {
  model_.onAgents = {};
  panels_.unload();
}

void AppDelegate::makeWindows() {
  appearance_.setComposited(x11::composited());
  appearance_.followDesktop();
  loadViews();
  if (!parts_.fixture) {
    if (!QDBusConnection::sessionBus().isConnected())
      parts_.complain("no session bus: there will be no banners, and no status item");
    else if (!status_.show())
      parts_.complain("no status item: the desktop has no status area");
  }
  alerts_.requestPermission();
  shortcut_.update();
  if (!samples_) {
    const auto& report = parts_.client.report();
    const auto tell = [this, &report] { model_.setProblems(report->problems); };
    problems_ = report.observe(tell);
    tell();
  }
  model_.onAgents = [this](const LitList& list) {
    alerts_.update(list);
    tellStatus();
  };
  tellStatus();
}

void AppDelegate::tellStatus() {
  const int needing = model_.lightCounts()[static_cast<std::size_t>(AgentLight::needsYou)];
  status_.tell(needing, words::of(model_.selectorSummary()));
}

void AppDelegate::loadViews() {
  panels_[EdgeWindow::notch].setView(QStringLiteral("EdgeNotchView"), notch_);
  panels_[EdgeWindow::rail].setView(QStringLiteral("RailView"), rail_);
  panels_[EdgeWindow::panel].setView(QStringLiteral("OstrelView"), panel_);
  panels_[EdgeWindow::agent].setView(QStringLiteral("HerdrOutputView"), conversation_);
}

void AppDelegate::showWindows() {
  edge_.start();
  followDesktop();
  followClicks();
  followActivation();
}

void AppDelegate::followDesktop() {
  const auto changed = [this] {
    screens_.forget();
    edge_.screensChanged();
    rail_.refresh();  // as many rows as fit
  };
  const auto follow = [this, changed](QScreen* screen) {
    QObject::connect(screen, &QScreen::geometryChanged, &engine_, changed);
    QObject::connect(screen, &QScreen::availableGeometryChanged, &engine_, changed);
    // Later: Qt tells before it has followed itself.
    QObject::connect(
        screen, &QScreen::logicalDotsPerInchChanged, &engine_, [this] { panels_.scaleChanged(); },
        Qt::QueuedConnection);
  };
  for (QScreen* screen : QGuiApplication::screens()) follow(screen);
  QObject::connect(qGuiApp, &QGuiApplication::screenAdded, &engine_, [follow, changed](QScreen* screen) {
    follow(screen);
    changed();
  });
  QObject::connect(qGuiApp, &QGuiApplication::screenRemoved, &engine_, changed);
  QObject::connect(qGuiApp, &QGuiApplication::primaryScreenChanged, &engine_, changed);
  screens_.onAreas = changed;
}

void AppDelegate::followClicks() {
  panels_.onKeyChange = [this] { edge_.keyWindowChanged(); };
  panels_.onCrossing = [this] { input_.crossed(); };
  panels_.onCloseAsked = [this](EdgeWindow window) {
    if (window == EdgeWindow::panel) edge_.hidePanel();
    if (window == EdgeWindow::agent) edge_.closeAgent();
  };
  QObject::connect(qGuiApp, &QGuiApplication::focusWindowChanged, &engine_, [this](QWindow* window) {
    // Under Wayland a click into another program's window is not told, but the keyboard goes there.
    if (application_.wayland() && !window) edge_.clicked(pointer());
  });
  const auto update = [this] {
    clicks_.reset();
    if (*shown_.isPanelVisible) clicks_ = input_.observeClicks([this](Point place) { edge_.clicked(place); });
  };
  panelVisible_ = shown_.isPanelVisible.observe(update);
}

void AppDelegate::followActivation() {
  if (parts_.fixture || samples_) return;
  providers_.refreshConnections();
  QObject::connect(qGuiApp, &QGuiApplication::applicationStateChanged, &engine_,
                   [this](Qt::ApplicationState state) {
                     if (state == Qt::ApplicationActive) providers_.becameActive();
                   });
}

void AppDelegate::run() { QApplication::exec(); }

void AppDelegate::stop() { QApplication::quit(); }

ConversationParts AppDelegate::conversationParts() {
  if (samples_)
    return {samples_->conversation, samples_->conversation, samples_->requests, parts_.urls,
            parts_.environment.home};
  HerdrClient& client = parts_.client;
  return {client.open(), client.actions(), client.requests(), parts_.urls, parts_.environment.home};
}

RequestSource& AppDelegate::requests() {
  return samples_ ? static_cast<RequestSource&>(samples_->requests) : parts_.client.requests();
}

AgentActions& AppDelegate::actions() {
  return samples_ ? static_cast<AgentActions&>(samples_->conversation) : parts_.client.actions();
}

Task<std::function<void()>> AppDelegate::findTerminal(HerdrAgent agent) {
  if (samples_ || !agent.externalProcess) co_return nullptr;
  const auto lineage = co_await parts_.pool.run(
      [&processes = parts_.processes, pid = agent.externalProcess->pid](std::stop_token) {
        return TerminalWindow::lineage(processes.table().value_or(""), pid);
      });
  co_return TerminalWindow::of(lineage);
}

void AppDelegate::open(const HerdrAgent& agent, bool markSeen) {
  try {
    actions().open(agent.id(), markSeen);
  } catch (const Failure&) {
    actions().close();  // it has gone in this moment, and its window says so
  }
  conversation_.show(agent);
}

void AppDelegate::closeConversation() {
  conversation_.closed();
  actions().close();
}

Point AppDelegate::pointer() const {
  // Over windows of Wayland's own the X server keeps saying where it was last.
  constexpr Point kElsewhere{-32'000, -32'000};
  if (application_.wayland() && !panels_.hasPointer()) return kElsewhere;
  const QPoint place = QCursor::pos();
  return {place.x(), place.y()};
}

}  // namespace ostrel

// What the conversation window costs in time, on a display of its own, with the program's own client, reader,
// permission server and throttles: a transcript of 200 MB from the click to the frame that shows its end,
// beside the same messages alone in a file; the frames of a conversation that scrolls, beside a bare list of
// the same texts; a switch among agents that were read before; and from the line of a permission hook to its
// card. Times are of the clock, a frame's cost is processor time.
//   ostrel-conversation-frames
#include <QApplication>
#include <QQmlComponent>
#include <QQuickItem>
#include <QQuickView>
#include <filesystem>
#include <unistd.h>

#include "App/EdgeState.h"
#include "Appearance.h"
#include "Claude/PermissionSocket.h"
#include "Client/HerdrClient.h"
#include "ConversationBridge.h"
#include "ConversationSample.h"
#include "Conversations/AgentTranscriptReader.h"
#include "DesktopScreens.h"
#include "NestedLoop.h"
#include "Platform/Linux/InotifyWatcher.h"
#include "Platform/Linux/NativeProcesses.h"
#include "Platform/Linux/PidfdExits.h"
#include "Platform/Linux/SpawnedServers.h"
#include "Runtime/UniqueFd.h"
#include "Support/NoPorts.h"
#include "UtilityPanels.h"
#include "WindowFrames.h"

namespace {

using namespace ostrel;
using namespace ostrel::bench;

constexpr std::size_t kLarge = 200'000'000;  // bytes
constexpr int kMessages = 100;
constexpr int kOpened = 10;
constexpr int kSwitched = 20;
constexpr int kFrames = 600;

double programTime() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) * 1e3 + static_cast<double>(time.tv_nsec) / 1e6;
}

// A Claude Code history: names of one large and one small file with the same last messages, so many that each
// is opened but once, and as many different small ones as agents to switch among.
class History {
 public:
  History() {
    const std::string last = ConversationSample(lines_, 1).lines(kMessages);
    const std::string rounds =
        TranscriptSample::filled("", kLarge / 25, [this] { return lines_.claudeRound(); });
    const std::string head = write(rounds);
    {
      std::ofstream file(head, std::ios::binary | std::ios::app);
      for (int i = 0; i < 24; ++i) file << rounds;
      file << last;
    }
    const std::string alone = write(last);
    for (int i = 0; i < kOpened; ++i) {
      large.push_back(link(head));
      small.push_back(link(alone));
    }
    for (unsigned i = 0; i < kSwitched; ++i)
      others.push_back(write(ConversationSample(lines_, 2 + i).lines(kMessages)));
  }

  std::vector<std::string> large, small, others;
  std::filesystem::path folder() const { return lines_.folder(); }

 private:
  std::string next() {
    const auto projects = folder() / "projects" / "work";
    std::filesystem::create_directories(projects);
    return (projects / fmt::format("5f0c3a52-7a0e-4b7e-9c58-{:012x}.jsonl", ++count_)).string();
  }
  std::string write(std::string_view bytes) {
    const std::string path = next();
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  std::string link(const std::string& path) {
    const std::string name = next();
    std::filesystem::create_hard_link(path, name);
    return name;
  }

  TranscriptSample lines_;
  int count_ = 0;
};

HerdrAgent agentOf(const std::string& transcript) {
  HerdrAgent agent;
  agent.externalProcess = ExternalProcess{.pid = ::getpid(),
                                          .parent = ::getppid(),
                                          .started = "Sun Nov 22 21:51:10 2026",
                                          .executable = "claude",
                                          .tty = "pts/0",
                                          .hostApp = {},
                                          .uid = {}};
  agent.session = "external";
  agent.paneID = transcript;
  agent.title = "An agent";
  agent.provider = "claude";
  agent.state = AgentState::blocked;
  agent.transcriptReference = transcript;
  agent.transcriptKind = "path";
  return agent;
}

// The rival of the conversation's list: the same blocks as texts, and nothing else.
constexpr char kBareList[] = R"(
import QtQuick
ListView {
    clip: true
    cacheBuffer: 400
    delegate: Text {
        required property string body
        required property int kind
        width: ListView.view.width
        padding: 8
        text: body
        textFormat: kind === 0 ? Text.MarkdownText : Text.PlainText
        wrapMode: Text.Wrap
        font.pixelSize: 14
    }
})";

// The program, with the agents of a made-up history in place of those that run.
class Conversations final : private TranscriptSource {
 public:
  Conversations() {
    appearance_.setReducedMotion(true);
    panels_[EdgeWindow::notch].setView(QStringLiteral("EdgeNotchView"), notch_);
    panels_[EdgeWindow::agent].setView(QStringLiteral("HerdrOutputView"), conversation_);
    client_.startDiscovery();
    edge_.start();
    runFor(500);
  }
  ~Conversations() {
    client_.stop();
    panels_.unload();
  }

  void measure() {
    show(history_.others[0]);
    const auto [large, small] = opened();
    print("200 MB opened, to its last words", large.times, 100);
    print("  processor time, all threads", large.costs, 100);
    print("its last 100 messages alone", small.times, 100);
    print("  processor time, all threads", small.costs, 100);
    fmt::print("{:<44} {:.2f}\n", "ratio of medians of processor time",
               large.costs.at(0.5) / small.costs.at(0.5));
    const Frames ours = scrolled();
    const Frames bare = bareScrolled();
    print("the conversation scrolls", ours);
    print("a bare list of its texts scrolls", bare);
    fmt::print("{:<44} {:.2f}\n", "ratio of medians", ours.at(0.5) / bare.at(0.5));
    const auto [switches, costs] = switched();
    print("another of 20 agents, to its last words", switches, 100);
    print("  processor time, main thread", costs, 100);
    print("hook line to the painted card", cards(), 150);
  }

 private:
  struct Opened {
    Frames times, costs;
  };

  void open(const HerdrAgent& agent, bool markSeen) {
    client_.actions().open(agent.id(), markSeen);
    conversation_.show(agent);
  }
  QQuickItem* find(const char* name) {
    return within(panels_[EdgeWindow::agent].rootObject(), QLatin1String(name));
  }
  // What a list or a repeater makes is a child of theirs for the eye only.
  static QQuickItem* within(QQuickItem* item, const QString& name) {
    if (item->objectName() == name) return item;
    for (QQuickItem* const child : item->childItems()) {
      if (QQuickItem* const found = within(child, name)) return found;
    }
    return nullptr;
  }

  // Whether the frame just painted has the end of the open conversation in it.
  bool showsEnd() {
    QQuickItem* const list = find("conversation");
    const std::vector<ConversationRow>& rows = conversation_.blocks()->rows();
    if (!list || rows.empty()) return false;
    QQuickItem* last = nullptr;
    QMetaObject::invokeMethod(list, "itemAtIndex", Q_RETURN_ARG(QQuickItem*, last),
                              Q_ARG(int, static_cast<int>(rows.size()) - 1));
    return last && last->property("key").toString() == rows.back().key && last->height() > 0 &&
           list->property("atYEnd").toBool() &&
           last->mapToItem(list, {0, last->height()}).y() <= list->height();
  }
  bool showsCard() {
    const QQuickItem* const card = find("permissionCard");
    return card && card->isVisible() && card->height() > 0 &&
           find("requestCards")->height() >= card->height();
  }

  // Until a frame of the window of which `there` is true; the time it took, in milliseconds.
  double untilFrame(const std::function<void()>& action, const std::function<bool()>& there) {
    QEventLoop loop;
    const auto begin = Clock::now();
    auto end = begin;
    const auto connection =
        QObject::connect(&panels_[EdgeWindow::agent], &QQuickWindow::frameSwapped, &loop, [&] {
          if (!there()) return;
          end = Clock::now();
          loop.quit();
        });
    QTimer::singleShot(5000, &loop, [&] { loop.exit(1); });
    action();
    if (loop.exec() != 0) fmt::print("the frame did not come\n");
    QObject::disconnect(connection);
    return milliseconds(end - begin);
  }

  double show(const std::string& transcript) {
    return untilFrame([&] { edge_.openAgent(agentOf(transcript)); }, [this] { return showsEnd(); });
  }

  std::pair<Opened, Opened> opened() {
    std::pair<Opened, Opened> all;
    const auto once = [this](const std::string& transcript, Opened& to) {
      edge_.closeAgent();
      runFor(150);
      const double before = programTime();
      to.times.costs.push_back(show(transcript));
      to.costs.costs.push_back(programTime() - before);
      runFor(100);
    };
    for (int i = 0; i < kOpened; ++i) {
      once(history_.large[static_cast<std::size_t>(i)], all.first);
      once(history_.small[static_cast<std::size_t>(i)], all.second);
    }
    return all;
  }

  // From the end to the start and back, as the keys do it.
  Frames scrolled() {
    show(history_.large[0]);
    runFor(500);
    QQuickItem* const list = find("conversation");
    return watch(panels_[EdgeWindow::agent], [&] {
      scroll(panels_[EdgeWindow::agent], *list, [list](double step) {
        QMetaObject::invokeMethod(list->parentItem(), "scroll", Q_ARG(double, step));
      });
    });
  }

  Frames bareScrolled() {
    QQuickItem* const ours = find("conversation");
    QQuickView window(&engine_, nullptr);
    QQmlComponent component(&engine_);
    component.setData(kBareList, {});
    const std::unique_ptr<QQuickItem> list(qobject_cast<QQuickItem*>(component.create()));
    window.resize(ours->size().toSize());
    window.show();
    list->setParentItem(window.contentItem());
    list->setSize(window.size());
    list->setProperty("model", QVariant::fromValue(conversation_.blocks()));
    QMetaObject::invokeMethod(list.get(), "positionViewAtEnd");
    runFor(500);
    return watch(window, [&] {
      scroll(window, *list, [&list](double step) {
        list->setProperty("contentY", list->property("contentY").toDouble() + step);
      });
    });
  }

  static void scroll(QQuickWindow& window, QQuickItem& list, const std::function<void(double)>& by) {
    double step = -40;
    int left = kFrames;
    QEventLoop loop;
    const auto connection = QObject::connect(&window, &QQuickWindow::frameSwapped, &loop, [&] {
      if (--left == 0) loop.quit();
      const double top = list.property("contentY").toDouble() - list.property("originY").toDouble();
      if (top + step < 0 || top + step > list.property("contentHeight").toDouble() - list.height())
        step = -step;
      by(step);
    });
    QTimer::singleShot(20'000, &loop, &QEventLoop::quit);
    by(step);
    loop.exec();
    QObject::disconnect(connection);
  }

  // Among agents whose conversations were read before; reads wait meanwhile, so that nothing shown is of one.
  std::pair<Frames, Frames> switched() {
    // Twice: what is remembered of agents is dropped whole when it is too much.
    for (int round = 0; round < 2; ++round) {
      for (const std::string& each : history_.others) {
        show(each);
        runFor(20);
      }
    }
    readsWait_ = true;
    std::pair<Frames, Frames> all;
    for (int round = 0; round < 3; ++round) {
      for (const std::string& each : history_.others) {
        const double before = processorTime();
        all.first.costs.push_back(show(each));
        all.second.costs.push_back(processorTime() - before);
        runFor(60);
      }
    }
    readsWait_ = false;
    return all;
  }

  Frames cards() {
    const std::string& transcript = history_.others[0];
    show(transcript);
    const std::string line =
        fmt::format(R"({{"session_id":"{}","tool_name":"Bash","tool_input":{{"command":"make test"}}}})"
                    "\n",
                    std::filesystem::path(transcript).stem().string());
    Frames times;
    for (int round = 0; round < 30; ++round) {
      runFor(150 + round);
      client_.agents().changed();  // another change just before: this one waits for the throttles
      runFor(5);
      UniqueFd hook;
      times.costs.push_back(untilFrame([&] { hook = ask(line); }, [this] { return showsCard(); }));
    }
    return times;
  }

  UniqueFd ask(const std::string& line) const {
    UniqueFd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    const sockaddr_un address = permissionSocket::address(socket_.c_str());
    if (::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::write(fd.get(), line.data(), line.size()) != static_cast<ssize_t>(line.size()))
      fmt::print("the hook found nobody\n");
    return fd;
  }

  HerdrClient::Sources sources() {
    std::vector<HerdrAgent> agents;
    for (const auto* const files : {&history_.large, &history_.small, &history_.others}) {
      for (const std::string& file : *files) agents.push_back(agentOf(file));
    }
    return {.scanExternal = [agents](std::stop_token) { return agents; },
            .claudeSessions = history_.folder() / "sessions",
            .transcripts = this,
            .permissionSocket = socket_};
  }

  Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference, std::optional<std::string> kind,
                                     std::string provider) override {
    while (readsWait_) co_await sleepFor(std::chrono::milliseconds(500));
    co_return co_await reader_.load(std::move(reference), std::move(kind), std::move(provider));
  }

  static Environment environment(const std::filesystem::path& folder) {
    return {.variables = {{"CLAUDE_CONFIG_DIR", folder.string()}}, .home = folder, .arguments = {}};
  }

  History history_;
  const std::string socket_ = (history_.folder() / "permissions.sock").string();
  bool readsWait_ = false;
  EpollLoop loop_;
  NestedLoop nested_{loop_};
  NativeProcesses processes_;
  Defaults preferences_;
  NoPointer pointer_;
  BackgroundPool pool_;
  PidfdExits exits_{loop_};
  InotifyWatcher files_{loop_};
  SpawnedServers servers_;
  AgentTranscriptReader reader_{AgentTranscript(environment(history_.folder())), pool_};
  NoHerdr herdr_;
  NoUrls urls_;
  HerdrClient client_{{loop_, pool_, exits_, files_, preferences_, servers_, herdr_, pool_}, sources()};
  OstrelModel model_{client_.agents()};
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  UtilityPanels panels_{loop_, engine_, appearance_, false};
  DesktopScreens screens_{loop_};
  InterfaceState edgeShown_;
  EdgeState edge_{{loop_, panels_, screens_, pointer_, preferences_},
                  model_,
                  edgeShown_,
                  {.select = [this](const HerdrAgent& agent, bool seen) { open(agent, seen); },
                   .stopOutput = [this] { client_.actions().close(); }}};
  BridgeParts parts_{model_, edge_, screens_, preferences_, [] {}};
  NotchBridge notch_{parts_};
  ConversationBridge conversation_{
      loop_, pool_, parts_, {client_.open(), client_.actions(), client_.requests(), urls_, {}}};
};

}  // namespace

int main(int argc, char** argv) {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  const QApplication application(argc, argv);
  fmt::print("{:<44} {:>13} {:>11} {:>11} {:>11}\n", "the conversation window", "", "median", "99 %",
             "longest");
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  Conversations().measure();
  return 0;
}

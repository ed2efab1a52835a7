// What many agents cost while only the handle is on the screen, with the program's own client and throttles:
// two hundred in a session of Herdr that all change each second; and twenty of which one is read and written
// to by its program, with its conversation open and closed. Counts frames of the handle and looks at files.
//   ostrel-crowd-frames
#include <QApplication>
#include <QQmlEngine>
#include <atomic>
#include <fcntl.h>
#include <fstream>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include "App/EdgeState.h"
#include "Appearance.h"
#include "Client/HerdrClient.h"
#include "ConversationBridge.h"
#include "Conversations/AgentTranscriptReader.h"
#include "DesktopScreens.h"
#include "NestedLoop.h"
#include "PanelPages.h"
#include "Platform/Linux/InotifyWatcher.h"
#include "Platform/Linux/PidfdExits.h"
#include "SampleConnections.h"
#include "SampleRequests.h"
#include "Support/NoPorts.h"
#include "Support/TemporaryFolder.h"
#include "UtilityPanels.h"
#include "WindowFrames.h"

namespace {

std::atomic<long> looksAtFiles = 0;

int statOf(int folder, const char* path, struct stat* result, int flags) {
  ++looksAtFiles;
  return static_cast<int>(::syscall(SYS_newfstatat, folder, path, result, flags));
}

}  // namespace

// In the place of the C library's, for this program alone.
extern "C" {
int countedStat(const char* path, struct stat* result) asm("stat");
int countedStat64(const char* path, struct stat* result) asm("stat64");
int countedLstat(const char* path, struct stat* result) asm("lstat");
int countedLstat64(const char* path, struct stat* result) asm("lstat64");
int countedFstatat(int folder, const char* path, struct stat* result, int flags) asm("fstatat");
int countedFstatat64(int folder, const char* path, struct stat* result, int flags) asm("fstatat64");

int countedStat(const char* path, struct stat* result) { return statOf(AT_FDCWD, path, result, 0); }
int countedStat64(const char* path, struct stat* result) { return statOf(AT_FDCWD, path, result, 0); }
int countedLstat(const char* path, struct stat* result) {
  return statOf(AT_FDCWD, path, result, AT_SYMLINK_NOFOLLOW);
}
int countedLstat64(const char* path, struct stat* result) {
  return statOf(AT_FDCWD, path, result, AT_SYMLINK_NOFOLLOW);
}
int countedFstatat(int folder, const char* path, struct stat* result, int flags) {
  return statOf(folder, path, result, flags);
}
int countedFstatat64(int folder, const char* path, struct stat* result, int flags) {
  return statOf(folder, path, result, flags);
}
}

namespace {

using namespace ostrel;
using namespace ostrel::bench;
using namespace std::chrono_literals;

constexpr int kCrowd = 200;
constexpr int kSmall = 20;
constexpr int kSeconds = 20;

// All threads of the program, in seconds.
double programTime() {
  timespec time{};
  ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

// A session of so many panes, each of which tells another state every second.
class BusyHerdr final : public NoHerdr {
 public:
  explicit BusyHerdr(int panes) : panes_(panes) {}

  std::optional<std::filesystem::path> find() override { return "/bin/herdr"; }
  std::string run(const std::filesystem::path&, const std::vector<std::string>& arguments, Duration,
                  std::stop_token) override {
    return arguments[0] == "api" ? R"({"schemas":{},"protocol":1})"
                                 : R"({"sessions":[{"name":"one","running":true,"socket_path":"/one"}]})";
  }
  Task<Json> request(std::string, std::string method, Json) override {
    if (method == "ping") co_return Json{{"protocol", 1}};
    Json rows = Json::array();
    for (int i = 0; i < panes_; ++i) {
      rows.push_back({{"pane_id", pane(i)},
                      {"agent", "claude"},
                      {"title", "Agent " + std::to_string(i)},
                      {"agent_status", state(i)},
                      {"terminal_id", "t" + std::to_string(i)},
                      {"cwd", "/work/" + std::to_string(i % 9)}});
    }
    co_return Json{{"agents", std::move(rows)}};
  }
  Task<void> events(std::string, Json subscriptions, std::function<void()> subscribed,
                    std::function<void(const Json&)> receive) override {
    subscribed();
    const bool status = !subscriptions.empty() && subscriptions[0].contains("pane_id");
    for (;;) {
      co_await sleepFor(1s);
      if (!status) continue;
      ++turn_;
      for (int i = 0; i < panes_; ++i) {
        receive({{"event", "pane.agent_status_changed"},
                 {"data", {{"pane_id", pane(i)}, {"agent_status", state(i)}}}});
      }
    }
  }

 private:
  static std::string pane(int i) { return "p" + std::to_string(i); }
  const char* state(int i) const {
    constexpr const char* kStates[] = {"working", "blocked", "idle"};
    return kStates[(turn_ + i) % 3];
  }

  const int panes_;
  int turn_ = 0;
};

HerdrAgent agentOf(int number, const std::string& transcript) {
  HerdrAgent agent;
  agent.externalProcess = ExternalProcess{.pid = ::getpid(),
                                          .parent = ::getppid(),
                                          .started = "Sun Nov 22 21:51:10 2026",
                                          .executable = "claude",
                                          .tty = "pts/" + std::to_string(number),
                                          .hostApp = {},
                                          .uid = {}};
  agent.session = "external";
  agent.paneID = std::to_string(number);
  agent.title = "Agent " + std::to_string(number);
  agent.provider = "claude";
  agent.state = AgentState::working;
  agent.transcriptReference = transcript;
  agent.transcriptKind = "path";
  return agent;
}

// The program, with the agents that it is given.
class Program {
 public:
  Program(HerdrPort& herdr, std::vector<HerdrAgent> agents, const std::filesystem::path& folder)
      : reader_(AgentTranscript(Environment{.variables = {}, .home = folder, .arguments = {}}), pool_),
        client_({loop_, pool_, exits_, files_, preferences_, servers_, herdr, pool_},
                {.scanExternal = [agents = std::move(agents)](std::stop_token) { return agents; },
                 .claudeSessions = folder / "sessions",
                 .transcripts = &reader_}) {
    appearance_.setReducedMotion(true);
    panels_[EdgeWindow::notch].setView(QStringLiteral("EdgeNotchView"), notch_);
    panels_[EdgeWindow::rail].setView(QStringLiteral("RailView"), rail_);
    panels_[EdgeWindow::panel].setView(QStringLiteral("OstrelView"), panel_);
    panels_[EdgeWindow::agent].setView(QStringLiteral("HerdrOutputView"), conversation_);
    client_.startDiscovery();
    edge_.start();
    runFor(500);
  }
  ~Program() {
    client_.stop();
    panels_.unload();
  }
  HerdrClient& client() { return client_; }
  EdgeState& edge() { return edge_; }
  QQuickWindow& handle() { return panels_[EdgeWindow::notch]; }

 private:
  void open(const HerdrAgent& agent, bool markSeen) {
    client_.actions().open(agent.id(), markSeen);
    conversation_.show(agent);
  }

  EpollLoop loop_;
  NestedLoop nested_{loop_};
  Defaults preferences_;
  NoPointer pointer_;
  BackgroundPool pool_;
  PidfdExits exits_{loop_};
  InotifyWatcher files_{loop_};
  NoServers servers_;
  NoUrls urls_;
  AgentTranscriptReader reader_;
  HerdrClient client_;
  OstrelModel model_{client_.agents()};
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  UtilityPanels panels_{loop_, engine_, appearance_, false};
  DesktopScreens screens_{loop_};
  InterfaceState shown_;
  EdgeState edge_{{loop_, panels_, screens_, pointer_, preferences_},
                  model_,
                  shown_,
                  {.select = [this](const HerdrAgent& agent, bool seen) { open(agent, seen); },
                   .stopOutput =
                       [this] {
                         conversation_.closed();
                         client_.actions().close();
                       }}};
  BridgeParts parts_{model_, edge_, screens_, preferences_, [] {}};
  NotchBridge notch_{parts_};
  RailBridge rail_{parts_};
  SampleConnections facts_{false};
  PanelBridge panel_{shown_, panelPages(parts_, {facts_, loop_, client_.requests()})};
  ConversationBridge conversation_{
      loop_, pool_, parts_, {client_.open(), client_.actions(), client_.requests(), urls_, {}}};
};

void print(const char* name, Program& program, int seconds, const std::function<void()>& work) {
  const double before = programTime();
  const long looks = looksAtFiles;
  const Frames frames = watch(program.handle(), work);
  fmt::print("{:<52} {:>5} frames of the handle {:>6} looks at files {:>6.2f} % of a core\n", name,
             frames.costs.size(), looksAtFiles - looks, 100 * (programTime() - before) / seconds);
}

void crowd() {
  BusyHerdr herdr(kCrowd);
  const TemporaryFolder folder;
  Program program(herdr, {}, folder.path());
  program.client().herdr().connect();
  runFor(3000);
  const auto pass = [] { runFor(kSeconds * 1000); };
  print("200 agents change each second (goal 5 %)", program, kSeconds, pass);
  program.edge().togglePanel();
  runFor(1000);
  print("  with their list open", program, kSeconds, pass);
}

void stream() {
  NoHerdr herdr;
  const TemporaryFolder folder;
  std::vector<HerdrAgent> agents;
  for (int i = 0; i < kSmall; ++i) {
    const auto name = fmt::format("projects/p/{:08d}-0000-4000-8000-000000000000.jsonl", i);
    agents.push_back(agentOf(i, folder.write(name, "").string()));
  }
  const std::string& read = *agents[0].transcriptReference;
  Program program(herdr, agents, folder.path());
  runFor(3000);
  int line = 0;
  const auto write = [&](int seconds) {
    for (int i = 0; i < seconds * 20; ++i) {
      std::ofstream(read, std::ios::app) << fmt::format(
          R"({{"type":"assistant","uuid":"{}","message":{{"role":"assistant","content":[{{"type":"text","text":"Word {}"}}]}}}})"
          "\n",
          ++line, line);
      runFor(50);
    }
  };
  print("20 agents at rest", program, kSeconds, [] { runFor(kSeconds * 1000); });
  print("  one of them is written to", program, kSeconds, [&] { write(kSeconds); });
  program.edge().openAgent(agents[0]);
  runFor(1000);
  print("  and its conversation is open", program, kSeconds, [&] { write(kSeconds); });
  program.edge().closeAgent();
  runFor(12'000);  // its view goes
  print("  and closed again", program, kSeconds, [&] { write(kSeconds); });
}

}  // namespace

int main(int argc, char** argv) {
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  const QApplication application(argc, argv);
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  crowd();
  stream();
  return 0;
}

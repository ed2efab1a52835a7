#include <condition_variable>
#include <mutex>
#include <random>
#include <set>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/HerdrLink.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

const std::string kRequestFailed =
    "Herdr request failed. Check the selected session and installed CLI version.";

// A Herdr made up by the test: sessions with panes, faults, events. Its doors are called on background
// threads.
class FakeHerdr {
 public:
  struct Pane {
    std::string state = "idle";
    std::string terminal = "t1";
  };
  struct Session {
    std::map<std::string, Pane> panes;
    bool running = true;
    bool answers = true;
    std::string socket = "/s";
  };

  HerdrLink::Doors doors() {
    return {[this](const auto&, const auto& arguments, Duration limit, std::stop_token) {
              EXPECT_EQ(limit, 8s);
              return run(arguments);
            },
            [this](const std::string& path, std::int64_t protocol, std::span<const std::string>,
                   const std::function<void()>& receive,
                   const std::stop_token& stop) { events(path, protocol, receive, stop); },
            [this]() -> std::optional<std::filesystem::path> {
              if (!installed) return std::nullopt;
              return "/bin/herdr";
            },
            [](const std::filesystem::path& path) { return path == "/chosen/herdr"; }};
  }

  // Looks at it or changes it, while its doors wait.
  template <class Work>
  auto with(Work work) {
    const std::lock_guard lock(mutex_);
    changed_.notify_all();
    return work(*this);
  }
  // One event on the socket, to whoever listens.
  void fireEvent(const std::string& path) {
    with([&](FakeHerdr& herdr) { ++herdr.fired[path]; });
  }
  int get(int FakeHerdr::* count) {
    return with([&](FakeHerdr& herdr) { return herdr.*count; });
  }

  std::map<std::string, Session> sessions;
  std::map<std::string, int> fired;  // events, by socket
  std::string schema = R"({"schemas":{},"protocol":3})";
  bool listFails = false;
  bool installed = true;
  int breaks = 0;      // each closes all connections
  int listening = 0;   // streams that are open
  int subscribed = 0;  // streams that have asked for their first step, since the beginning
  int received = 0;    // events
  int commands = 0;

 private:
  std::string run(const std::vector<std::string>& arguments) {
    const std::lock_guard lock(mutex_);
    ++commands;
    const std::string words = fmt::format("{}", fmt::join(arguments, " "));
    if (words == "api schema --json") return schema;
    Json document;
    if (words == "session list --json") {
      if (listFails) throw Failure(kRequestFailed);
      document["sessions"] = Json::array();
      for (const auto& [name, session] : sessions) {
        document["sessions"].push_back(
            {{"name", name}, {"running", session.running}, {"socket_path", session.socket}});
      }
    } else {
      const auto session = sessions.find(arguments.at(1));
      if (session == sessions.end() || !session->second.answers) throw Failure("no answer");
      document["agents"] = Json::array();
      for (const auto& [id, pane] : session->second.panes) {
        document["agents"].push_back(
            {{"pane_id", id}, {"agent_status", pane.state}, {"terminal_id", pane.terminal}});
      }
    }
    return document.dump();
  }

  void events(const std::string& path, std::int64_t protocol, const std::function<void()>& receive,
              const std::stop_token& stop) {
    // Before the lock, which must be free when this goes.
    const std::stop_callback wake(stop, [this] { with([](FakeHerdr&) {}); });
    std::unique_lock lock(mutex_);
    if (protocol != 3) throw Failure("Herdr API version changed.");
    ++listening;
    int seen = fired[path];
    const int unbroken = breaks;
    receive();
    ++subscribed;
    while (!stop.stop_requested() && breaks == unbroken) {
      changed_.wait(lock, [&] { return stop.stop_requested() || breaks != unbroken || fired[path] != seen; });
      for (; seen < fired[path]; ++seen, ++received) receive();
    }
    --listening;
    if (stop.stop_requested()) throw Cancelled();
    throw Failure("Herdr disconnected.");
  }

  std::mutex mutex_;
  std::condition_variable changed_;
};

class HerdrLinkTest : public testing::Test {
 protected:
  HerdrLinkTest() {
    herdr_.sessions["main"].panes["p1"] = {};
    herdr_.sessions["main"].socket = "/main";
    herdr_.sessions["side"].panes["p1"] = {"working", "t2"};
    herdr_.sessions["side"].socket = "/side";
  }
  bool stepsReach(std::uint64_t count) {
    return loop_.waitUntil([&] { return *link_.steps() >= count; });
  }
  std::vector<std::string> ids() {
    std::vector<std::string> ids;
    for (const HerdrAgent& agent : *link_.agents()) ids.push_back(agent.id() + " " + agent.state);
    return ids;
  }
  // Lets the steps pass that fresh event streams ask for.
  void settle() {
    loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::subscribed) == 2; });
    loop_.runFor(100ms);
    stepsReach(2);
    // The heartbeat's first round began before there were streams.
    loop_.runFor(1900ms);
    stepsReach(3);
  }

  FakeHerdr herdr_;
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  BackgroundPool pool_;
  HerdrLink link_{loop_, pool_, preferences_, herdr_.doors()};
};

TEST_F(HerdrLinkTest, ConnectsToAllSessionsAndArmsTheReconnection) {
  EXPECT_EQ(link_.status(), "Not connected");
  link_.connect();
  EXPECT_EQ(link_.status(), "Connecting…");
  EXPECT_FALSE(preferences_.boolean("herdrReconnect"));
  ASSERT_TRUE(stepsReach(1));
  EXPECT_EQ(link_.status(), "Connected · 2 sessions");
  EXPECT_EQ(ids(), (std::vector{"4:mainp1 idle"s, "4:sidep1 working"s}));
  EXPECT_TRUE(*link_.inventoryComplete());
  EXPECT_FALSE(*link_.error());
  EXPECT_TRUE(preferences_.boolean("herdrReconnect"));
  EXPECT_EQ(preferences_.string("herdrExecutable"), "/bin/herdr");
  ASSERT_TRUE(loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::listening) == 2; }));
  link_.disconnect(false);
  EXPECT_TRUE(preferences_.boolean("herdrReconnect"));
  EXPECT_TRUE(link_.agents()->empty());
  EXPECT_TRUE(loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::listening) == 0; }));
  const int before = herdr_.get(&FakeHerdr::commands);
  link_.requestRefresh();
  loop_.runFor(5min);
  EXPECT_LE(herdr_.get(&FakeHerdr::commands), before + 1) << "one that had begun may still be noted";
  link_.disconnect(true);
  EXPECT_FALSE(preferences_.boolean("herdrReconnect"));
}

TEST_F(HerdrLinkTest, RefusesWhatCantWorkInTheWrittenWords) {
  herdr_.installed = false;
  link_.connect();
  EXPECT_EQ(*link_.error(), "Herdr was not found. Install it or choose its executable below.");
  herdr_.installed = true;
  link_.executablePath().set("/stale/herdr");
  EXPECT_FALSE(link_.resolveExecutable()) << "no search behind a stale choice";
  link_.executablePath().set("/chosen/herdr");
  link_.sessionName().set(" -x");
  link_.connect();
  EXPECT_EQ(*link_.error(), "Enter a local Herdr session name, such as default.");
  EXPECT_FALSE(*link_.active());
  link_.sessionName().set("");
  for (const auto schema : {R"({"protocol":3})", R"({"schemas":1,"protocol":"3"})", ""}) {
    herdr_.schema = schema;
    link_.connect();
    ASSERT_TRUE(loop_.waitUntil([&] { return link_.error()->has_value(); }));
    EXPECT_EQ(
        *link_.error(),
        "Could not read Herdr’s API schema: Unsupported Herdr schema document. Update Herdr and try again.");
    EXPECT_FALSE(*link_.active());
    const int before = herdr_.get(&FakeHerdr::commands);
    loop_.runFor(5min);
    EXPECT_EQ(herdr_.get(&FakeHerdr::commands), before) << "not asked again";
  }
}

TEST_F(HerdrLinkTest, AFilterTakesOneSessionAndNoEventsMeanFrequentLooks) {
  herdr_.sessions["side"].socket = "relative";  // no events: it is asked often
  link_.sessionName().set(" side ");
  link_.connect();
  ASSERT_TRUE(stepsReach(1));
  EXPECT_EQ(ids(), std::vector{"4:sidep1 working"s});
  EXPECT_FALSE(*link_.inventoryComplete());
  EXPECT_EQ(preferences_.string("herdrSessionOverride"), "side");
  herdr_.with([](FakeHerdr& herdr) { herdr.sessions["side"].running = false; });
  loop_.runFor(2s);
  ASSERT_TRUE(loop_.waitUntil([&] { return !*link_.connected(); }));
  EXPECT_EQ(herdr_.get(&FakeHerdr::subscribed), 0);
  EXPECT_EQ(*link_.error(), "No running Herdr sessions yet. Start Herdr; we’ll keep looking.");
  herdr_.with([](FakeHerdr& herdr) { herdr.listFails = true; });
  loop_.runFor(2s);
  EXPECT_TRUE(loop_.waitUntil([&] { return *link_.error() == kRequestFailed + " Retrying automatically."; }));
}

TEST_F(HerdrLinkTest, EventsShortenTheWaitAndBurstsFoldIntoOneStep) {
  link_.connect();
  ASSERT_TRUE(stepsReach(1));
  settle();
  const std::uint64_t before = *link_.steps();
  const int commands = herdr_.get(&FakeHerdr::commands);
  loop_.runFor(20s);
  EXPECT_EQ(herdr_.get(&FakeHerdr::commands), commands) << "with streams the heartbeat is slow";
  herdr_.with([](FakeHerdr& herdr) { herdr.sessions["main"].panes["p1"].state = "blocked"; });
  for (int i = 0; i < 1000; ++i) herdr_.fireEvent("/main");
  ASSERT_TRUE(loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::received) == 1000; }));
  loop_.runFor(99ms);
  EXPECT_EQ(*link_.steps(), before);
  loop_.runFor(1ms);
  ASSERT_TRUE(stepsReach(before + 1));
  EXPECT_EQ(ids()[0], "4:mainp1 blocked");
  loop_.runFor(5s);
  EXPECT_EQ(*link_.steps(), before + 1);

  // A storm: no more than a step in a tenth of a second.
  int received = 1000;
  for (int i = 0; i < 100; ++i) {
    for (int j = 0; j < 100; ++j) herdr_.fireEvent("/main");
    received += 100;
    ASSERT_TRUE(loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::received) == received; }));
    loop_.runFor(10ms);
  }
  EXPECT_LE(*link_.steps(), before + 1 + 11);
}

// Half an hour of faults: sessions come, go and hang up, streams break, the person connects anew.
TEST_F(HerdrLinkTest, HalfAnHourOfFaultsLeavesNothingStale) {
  const unsigned seed = std::random_device{}();
  SCOPED_TRACE(fmt::format("seed {}", seed));
  std::mt19937 random(seed);
  const auto chance = [&](unsigned percent) { return random() % 100 < percent; };
  link_.connect();
  for (Duration passed{}; passed < 30min; passed += 700ms) {
    herdr_.with([&](FakeHerdr& herdr) {
      herdr.listFails = chance(5);
      for (auto& [name, session] : herdr.sessions) {
        session.running = !chance(10);
        session.answers = !chance(10);
        const std::string pane = fmt::format("p{}", random() % 4);
        if (chance(20))
          session.panes[pane] = {chance(50) ? "working" : "blocked", fmt::format("t{}", random() % 9)};
        if (chance(10)) session.panes.erase(pane);
      }
    });
    if (chance(3)) herdr_.with([](FakeHerdr& herdr) { ++herdr.breaks; });
    if (chance(20)) herdr_.fireEvent(chance(50) ? "/main" : "/side");
    if (chance(2)) link_.disconnect(false);
    if (!*link_.active() && chance(50)) link_.connect();
    loop_.runFor(700ms);
    // Commands that were begun end in real time.
    loop_.waitUntil([&] { return pool_.threads() == 0 || !*link_.connecting(); }, 5s);
  }
  herdr_.with([](FakeHerdr& herdr) {
    herdr.listFails = false;
    for (auto& [name, session] : herdr.sessions) {
      session.running = session.answers = true;
      session.panes = {{"last", {"done", "t"}}};
    }
  });
  if (!*link_.active()) link_.connect();
  for (int i = 0; i < 3; ++i) {
    const std::uint64_t before = *link_.steps();
    loop_.runFor(31s);
    ASSERT_TRUE(stepsReach(before + 1));
  }
  EXPECT_EQ(ids(), (std::vector{"4:mainlast done"s, "4:sidelast done"s}));
  EXPECT_FALSE(*link_.error());
  EXPECT_TRUE(loop_.waitUntil([&] { return herdr_.get(&FakeHerdr::listening) == 2; }))
      << "one stream for each session, no more";
}

}  // namespace
}  // namespace ostrel

#include <random>

#include <fmt/ranges.h>
#include <gtest/gtest.h>

#include "Client/FakeHerdr.h"
#include "Client/HerdrLink.h"
#include "Support/InlineBackground.h"
#include "Support/MemoryPreferences.h"
#include "Support/Seed.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

class HerdrLinkTest : public testing::Test {
 protected:
  HerdrLinkTest() {
    herdr_.sessions["main"].panes["p1"] = {};
    herdr_.sessions["main"].socket = "/main";
    herdr_.sessions["side"].panes["p1"] = {"working", "t2", {}};
    herdr_.sessions["side"].socket = "/side";
  }
  std::vector<std::string> ids() {
    std::vector<std::string> ids;
    for (const HerdrAgent& agent : *link_.agents())
      ids.push_back(agent.id() + " " + std::string(stateName(agent.state)));
    return ids;
  }
  // Runs on, a tenth of a second at a time, until it holds.
  bool soon(const std::function<bool()>& holds, Duration limit = 5s) {
    for (Duration passed{}; passed < limit && !holds(); passed += 100ms) loop_.runFor(100ms);
    return holds();
  }
  // Connected, with two streams for each of the two sessions.
  void connect() {
    link_.connect();
    ASSERT_TRUE(soon([&] { return herdr_.streams.size() == 4; }));
    loop_.runFor(1s);
  }

  FakeHerdr herdr_;
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  InlineBackground commands_;
  HerdrLink link_{loop_, preferences_, herdr_, commands_};
};

TEST_F(HerdrLinkTest, ConnectsToAllSessionsAndArmsTheReconnection) {
  EXPECT_EQ(link_.status(), "Not connected");
  link_.connect();
  EXPECT_EQ(link_.status(), "Connecting…");
  EXPECT_FALSE(preferences_.boolean("herdrReconnect"));
  ASSERT_TRUE(soon([&] { return !*link_.connecting(); }));
  EXPECT_EQ(link_.status(), "Connected · 2 sessions");
  EXPECT_EQ(ids(), (std::vector{"4:mainp1 idle"s, "4:sidep1 working"s}));
  EXPECT_TRUE(*link_.inventoryComplete());
  EXPECT_FALSE(*link_.error());
  EXPECT_TRUE(link_.hasSocket((*link_.agents())[1]));
  EXPECT_TRUE(preferences_.boolean("herdrReconnect"));
  EXPECT_EQ(preferences_.string("herdrExecutable"), "/bin/herdr");
  ASSERT_TRUE(soon([&] { return herdr_.streams.size() == 4; }));
  link_.disconnect(false);
  EXPECT_TRUE(preferences_.boolean("herdrReconnect"));
  EXPECT_TRUE(link_.agents()->empty());
  loop_.runUntilIdle();
  EXPECT_TRUE(herdr_.streams.empty());
  const int before = herdr_.commandCount();
  link_.refresh("main");
  loop_.runFor(5min);
  EXPECT_EQ(herdr_.commandCount(), before);
  link_.disconnect(true);
  EXPECT_FALSE(preferences_.boolean("herdrReconnect"));
}

TEST_F(HerdrLinkTest, RefusesWhatCantWorkInTheWrittenWords) {
  herdr_.installed = false;
  const auto refusal = [&] {
    link_.connect();
    EXPECT_TRUE(loop_.waitUntil([&] { return !*link_.active(); }));
    return link_.error()->value_or("");
  };
  EXPECT_EQ(refusal(), "Herdr was not found. Install it or choose its executable below.");
  link_.connectWhereInstalled();
  ASSERT_TRUE(loop_.waitUntil([&] { return !*link_.active(); }));
  EXPECT_FALSE(*link_.error()) << "nobody asked for one";
  herdr_.with([](FakeHerdr& herdr) { herdr.installed = true; });
  link_.executablePath().set("/stale/herdr");
  EXPECT_EQ(refusal(), "Herdr was not found. Install it or choose its executable below.")
      << "no search behind a stale choice";
  link_.executablePath().set("/chosen/herdr");
  link_.sessionName().set(" -x");
  EXPECT_EQ(refusal(), "Enter a local Herdr session name, such as default.");
  link_.sessionName().set("");
  for (const auto schema : {R"({"protocol":3})", R"({"schemas":1,"protocol":"3"})", ""}) {
    herdr_.schema = schema;
    link_.connect();
    ASSERT_TRUE(loop_.waitUntil([&] { return link_.error()->has_value(); }));
    EXPECT_EQ(
        *link_.error(),
        "Could not read Herdr’s API schema: Unsupported Herdr schema document. Update Herdr and try again.");
    EXPECT_FALSE(*link_.active());
    const int before = herdr_.commandCount();
    loop_.runFor(5min);
    EXPECT_EQ(herdr_.commandCount(), before) << "not asked again";
  }
}

TEST_F(HerdrLinkTest, AFilterTakesOneSessionAndNoEventsMeanFrequentLooks) {
  herdr_.sessions["side"].socket = "relative";  // no events: it is asked often, by the command
  link_.sessionName().set(" side ");
  link_.connect();
  ASSERT_TRUE(soon([&] { return ids() == std::vector{"4:sidep1 working"s}; }));
  EXPECT_FALSE(*link_.inventoryComplete());
  EXPECT_EQ(preferences_.string("herdrSessionOverride"), "side");
  herdr_.with([](FakeHerdr& herdr) { herdr.sessions["side"].panes["p1"].state = "done"; });
  EXPECT_TRUE(soon([&] { return ids() == std::vector{"4:sidep1 done"s}; }, 2500ms));
  EXPECT_EQ(herdr_.lists, 0);
  herdr_.with([](FakeHerdr& herdr) { herdr.sessions["side"].running = false; });
  ASSERT_TRUE(soon([&] { return !*link_.connected(); }));
  EXPECT_EQ(herdr_.subscriptions, 0);
  EXPECT_EQ(*link_.error(), "No running Herdr sessions yet. Start Herdr; we’ll keep looking.");
  herdr_.with([](FakeHerdr& herdr) { herdr.listFails = true; });
  EXPECT_TRUE(soon([&] { return *link_.error() == kRequestFailed + " Retrying automatically."; }));
}

TEST_F(HerdrLinkTest, AStateShowsAtOnceAndABurstCostsTwoLooksASecond) {
  connect();
  const int commands = herdr_.commandCount();
  herdr_.setState("main", "p1", "blocked");
  loop_.runUntilIdle();
  EXPECT_EQ(ids()[0], "4:mainp1 blocked") << "before any look";
  const int before = herdr_.lists;
  loop_.runFor(99ms);
  EXPECT_EQ(herdr_.lists, before);
  loop_.runFor(3ms);
  EXPECT_EQ(herdr_.lists, before + 1) << "the first of a burst";

  loop_.runFor(1s);
  int looks = herdr_.lists;
  for (int i = 1; i <= 400; ++i) {
    herdr_.setTitle("main", "p1", fmt::format("title {}", i));
    loop_.runFor(20ms);
  }
  loop_.runFor(600ms);
  EXPECT_EQ((*link_.agents())[0].title, "title 400");
  EXPECT_LE(herdr_.lists - looks, 18) << "in eight seconds and a half";

  // History, and what concerns no agent, costs nothing.
  looks = herdr_.lists;
  for (int i = 0; i < 100; ++i) {
    for (const char* const kind : {"pane_created", "pane_updated"}) herdr_.fireRow(kind, "main", "p1");
    herdr_.fire("/main", {{"event", "pane_closed"}, {"data", {{"pane_id", "p77"}}}});
    herdr_.fire("/main",
                {{"event", "pane_agent_detected"}, {"data", {{"pane_id", "p1"}, {"agent", "claude"}}}});
    herdr_.fire("/main", {{"event", "pane_updated"}, {"data", {{"pane", {{"pane_id", "shell"}}}}}});
    loop_.runFor(10ms);
  }
  EXPECT_EQ(herdr_.lists, looks);
  loop_.runFor(10s);
  EXPECT_EQ(herdr_.commandCount(), commands) << "no process at all";
  EXPECT_TRUE(soon([&] { return herdr_.commandCount() == commands + 1; }, 31s)) << "the slow beat";
}

TEST_F(HerdrLinkTest, AStreamThatBrokeOrWasRefusedIsOpenedAgainSoon) {
  connect();
  herdr_.breakStreams();
  ASSERT_TRUE(soon([&] { return herdr_.streams.size() == 4; }, 1s));

  // A pane goes between the list and the subscription: refused whole, until a fresh list.
  herdr_.with([](FakeHerdr& herdr) { herdr.sessions["main"].panes["p2"] = {}; });
  herdr_.fireRow("pane_created", "main", "p2");
  loop_.runFor(101ms);  // the list has been asked for, and comes in a moment
  herdr_.with([](FakeHerdr& herdr) {
    herdr.sessions["main"].panes["p3"] = {};
    herdr.sessions["main"].panes.erase("p1");
  });
  EXPECT_TRUE(soon([&] { return ids()[0] == "4:mainp2 idle" && herdr_.streams.size() == 4; }, 2s))
      << fmt::format("{}", ids());
  herdr_.setState("main", "p3", "blocked");
  EXPECT_TRUE(soon([&] { return ids()[1] == "4:mainp3 blocked"; }, 100ms));

  // Where no stream can stand, the beat is the fast one, and no faster.
  herdr_.refusesStreams = true;
  herdr_.breakStreams();
  loop_.runFor(2s);
  const int tried = herdr_.subscriptions;
  const int commands = herdr_.commandCount();
  for (int i = 0; i < 100; ++i) soon([] { return false; }, 100ms);
  EXPECT_GE(herdr_.commandCount() - commands, 4);
  EXPECT_LE(herdr_.commandCount() - commands, 6);
  EXPECT_LE(herdr_.subscriptions - tried, 24) << "two streams of two sessions each two seconds";
  herdr_.refusesStreams = false;
  EXPECT_TRUE(soon([&] { return herdr_.streams.size() == 4; }, 2500ms));
}

TEST_F(HerdrLinkTest, ASilentSessionKeepsItsRowsAndDelaysNobody) {
  herdr_.sessions["dead"].silent = true;
  herdr_.sessions["dead"].socket = "/dead";
  link_.connect();
  EXPECT_TRUE(soon([&] { return link_.agents()->size() == 2; }, 500ms));
  EXPECT_TRUE(*link_.connecting());
  EXPECT_TRUE(soon([&] { return !*link_.connecting(); }, 4s));
  EXPECT_EQ(*link_.error(), "Could not reach: dead. Retrying automatically.");
  EXPECT_FALSE(*link_.inventoryComplete());

  herdr_.with([](FakeHerdr& herdr) {
    herdr.sessions["dead"].silent = false;
    herdr.sessions["side"].refusal = "restart the Herdr server.\nIt is older.";
  });
  link_.refresh("side");
  EXPECT_TRUE(soon([&] {
    return *link_.error() == "Could not reach: side (restart the Herdr server). Retrying automatically.";
  })) << link_.error()->value_or("");
  EXPECT_EQ(ids(), (std::vector{"4:mainp1 idle"s, "4:sidep1 working"s})) << "what was known stays";
  EXPECT_EQ(*link_.sessionCount(), 2);

  // The list of sessions can't be had: those that talk to us stay.
  herdr_.with([](FakeHerdr& herdr) {
    herdr.sessions["side"].refusal = "";
    herdr.listFails = true;
  });
  EXPECT_TRUE(soon([&] { return link_.error()->value_or("").starts_with(kRequestFailed); }, 35s));
  EXPECT_EQ(link_.agents()->size(), 2u);
  herdr_.setState("main", "p1", "done");
  EXPECT_TRUE(soon([&] { return ids()[0] == "4:mainp1 done"; }, 100ms));
}

TEST_F(HerdrLinkTest, AServerOfAnotherVersionIsAskedByTheCommandUntilTheyAgree) {
  herdr_.sessions["main"].protocol = 4;
  link_.connect();
  ASSERT_TRUE(soon([&] { return link_.agents()->size() == 2; }));
  loop_.runFor(1s);
  EXPECT_EQ(herdr_.streams.size(), 2u) << "those of the other session";
  herdr_.with([](FakeHerdr& herdr) {
    herdr.schema = R"({"schemas":{},"protocol":4})";
    herdr.sessions["side"].protocol = 4;
  });
  herdr_.breakStreams();
  EXPECT_TRUE(soon([&] { return herdr_.streams.size() == 4; }, 7s));
}

// Half an hour of faults: sessions come, go and hang up, streams break, the person connects anew.
TEST_F(HerdrLinkTest, HalfAnHourOfFaultsLeavesNothingStale) {
  std::mt19937 random(randomSeed());
  const auto chance = [&](unsigned percent) { return random() % 100 < percent; };
  link_.connect();
  for (Duration passed{}; passed < 30min; passed += 700ms) {
    herdr_.with([&](FakeHerdr& herdr) {
      herdr.listFails = chance(5);
      for (auto& [name, session] : herdr.sessions) {
        session.running = !chance(10);
        session.answers = !chance(10);
        session.silent = chance(5);
        const std::string pane = fmt::format("p{}", random() % 4);
        if (chance(20))
          session.panes[pane] = {chance(50) ? "working" : "blocked", fmt::format("t{}", random() % 9), {}};
        if (chance(10)) session.panes.erase(pane);
      }
    });
    if (chance(3)) herdr_.breakStreams();
    if (chance(20))
      herdr_.fire(chance(50) ? "/main" : "/side", {{"event", "pane_moved"}, {"data", Json::object()}});
    if (chance(2)) link_.disconnect(false);
    if (!*link_.active() && chance(50)) link_.connect();
    loop_.runFor(700ms);
    // Commands that were begun end in real time.
    loop_.waitUntil([&] { return !*link_.connecting(); }, 20ms);
  }
  herdr_.with([](FakeHerdr& herdr) {
    herdr.listFails = false;
    for (auto& [name, session] : herdr.sessions) {
      session.running = session.answers = true;
      session.silent = false;
      session.panes = {{"last", {"done", "t", {}}}};
    }
  });
  if (!*link_.active()) link_.connect();
  EXPECT_TRUE(soon(
      [&] {
        return ids() == std::vector{"4:mainlast done"s, "4:sidelast done"s} && !*link_.error() &&
               herdr_.streams.size() == 4;
      },
      40s))
      << fmt::format("{} {} {}", ids(), herdr_.streams.size(), link_.error()->value_or(""));
}

}  // namespace
}  // namespace ostrel

// How quickly and at what cost `ostrelctl` follows a Herdr in processes of its own.
#include <algorithm>
#include <csignal>
#include <filesystem>
#include <map>
#include <thread>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Peers/Herdr/HerdrStandIn.h"
#include "Peers/Serving.h"
#include "Support/Eventually.h"

namespace ostrel {
namespace {

using namespace std::literals;
using Clock = std::chrono::steady_clock;

// A running `ostrelctl watch --json`, read for what it says of Herdr's agents.
class Watching {
 public:
  explicit Watching(const HerdrStandIn& herdr)
      : process_({OSTREL_BIN_DIR "/ostrelctl", "watch", "--json"}, herdr.environment()) {}

  // Reads on until the list fits.
  bool until(const std::function<bool(const Json& agents)>& fits, std::chrono::milliseconds limit = 30s) {
    const auto end = Clock::now() + limit;
    for (;;) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      const auto line = process_.line(std::max(left, 0ms));
      const auto list = line ? json::parse(*line) : std::nullopt;
      if (!list) return false;
      last_ = *line;
      if (fits((*list)["agents"])) return true;
    }
  }
  bool shows(const std::string& session, const std::string& state, std::chrono::milliseconds limit = 30s) {
    return until(
        [&](const Json& agents) {
          return std::ranges::any_of(agents, [&](const Json& agent) {
            return agent["pane"].is_object() && agent["pane"]["session"] == session &&
                   agent["state"] == state;
          });
        },
        limit);
  }
  const std::string& last() const { return last_; }
  pid_t pid() const { return process_.pid(); }

 private:
  ChildProcess process_;
  std::string last_;
};

std::size_t entries(const std::string& folder) {
  std::size_t count = 0;
  for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder)) ++count;
  return count;
}

TEST(HerdrFollowing, AStateIsSeenWithinHalfASecondAndHoldsNoThread) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open("one", {"cat"});
  herdr.report("one", pane, {.agent = "claude", .status = "idle"});
  Watching watch(herdr);
  ASSERT_TRUE(watch.shows("one", "idle"));
  std::this_thread::sleep_for(2s);  // its streams stand, and what they replay at first has passed
  const std::string own = fmt::format("/proc/{}/", watch.pid());
  const std::size_t descriptors = entries(own + "fd");
  std::chrono::milliseconds slowest{};
  for (int i = 0; i < 10; ++i) {
    const std::string state = i % 2 == 0 ? "working" : "blocked";
    herdr.report("one", pane, {.status = state});
    const auto changed = Clock::now();
    ASSERT_TRUE(watch.shows("one", state)) << watch.last();
    slowest =
        std::max(slowest, std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - changed));
  }
  RecordProperty("slowest_ms", static_cast<int>(slowest.count()));
  EXPECT_LE(slowest, 500ms);
  EXPECT_TRUE(eventually([&] { return entries(own + "fd") == descriptors; })) << "no connection is left over";
  // The main thread, two for scans and output, one that asks Codex; none for Herdr's streams.
  EXPECT_TRUE(eventually([&] { return entries(own + "task") <= 4; })) << entries(own + "task");
}

TEST(HerdrFollowing, ABurstOfTitlesStartsFewProcesses) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open(
      "one", {"sh", "-c",
              "read go; for i in $(seq 400); do printf '\\033]0;title %d\\007' $i; sleep 0.02; done; cat"});
  herdr.report("one", pane, {.agent = "claude", .status = "working"});
  Watching watch(herdr);
  ASSERT_TRUE(watch.shows("one", "working"));
  herdr.run("one", {"pane", "send-text", pane.id, "go\n"});
  const std::size_t before = herdr.processes();
  const auto began = Clock::now();
  ASSERT_TRUE(watch.until(
      [](const Json& agents) {
        return std::ranges::any_of(agents, [](const Json& agent) { return agent["title"] == "title 400"; });
      },
      90s))
      << watch.last();
  EXPECT_GT(Clock::now() - began, 4s) << "one after the other";
  const std::size_t started = herdr.processes() - before;
  RecordProperty("processes", static_cast<int>(started));
  EXPECT_LE(started, 10u);
}

TEST(HerdrFollowing, AStoppedSessionDelaysNobodyAndKeepsItsRows) {
  HerdrStandIn herdr;
  std::map<std::string, HerdrStandIn::Pane> panes;
  for (const std::string session : {"a", "b", "c"}) {
    herdr.start(session);
    panes[session] = herdr.open(session, {"cat"});
    herdr.report(session, panes[session], {.agent = "claude", .status = "idle"});
  }
  Watching watch(herdr);
  ASSERT_TRUE(watch.until([](const Json& agents) {
    return std::ranges::count_if(agents, [](const Json& agent) { return agent["pane"].is_object(); }) == 3;
  }));
  ::kill(herdr.server("b"), SIGSTOP);
  Serving late(OSTREL_BIN_DIR "/ostrelctl", herdr.environment(), herdr.home());
  late.perform({{"op", "connect"}});
  const auto began = Clock::now();
  const auto shows = [&](std::string_view wanted, std::size_t count) {
    return late
        .until("agents",
               [&](const Json& event) {
                 std::size_t found = 0;
                 for (const Json& agent : event["agents"]) found += agent["pane"].is_object() ? 1u : 0u;
                 return found == count && json::string(event["herdr"], "error").value_or("") == wanted;
               })
        .is_object();
  };
  EXPECT_TRUE(shows("", 2));
  EXPECT_LT(Clock::now() - began, 2s) << "the others are there at once";
  EXPECT_TRUE(shows("Could not reach: b. Retrying automatically.", 2));

  for (const std::string state : {"working", "blocked", "working"}) {
    herdr.report("c", panes["c"], {.status = state});
    const auto changed = Clock::now();
    ASSERT_TRUE(watch.shows("c", state)) << watch.last();
    EXPECT_LT(Clock::now() - changed, 1s);
  }
  EXPECT_NE(watch.last().find("\"session\":\"b\""), std::string::npos) << "what was known of it stays";
  ::kill(herdr.server("b"), SIGCONT);
  EXPECT_TRUE(shows("", 3));
}

TEST(HerdrFollowing, AfterALiveHandoffEachAgentStandsOnce) {
  HerdrStandIn herdr;
  herdr.start("one");
  const std::filesystem::path claude = herdr.home() / "claude";
  std::filesystem::copy_file("/bin/cat", claude);  // a process of an agent's name
  const std::string folder = herdr.home() / "project";
  std::filesystem::create_directory(folder);
  const auto pane = herdr.open("one", {claude}, folder);
  herdr.report("one", pane, {.agent = "claude", .status = "idle"});
  const auto here = [&](const Json& agents) {
    return std::ranges::count_if(agents, [&](const Json& agent) { return agent["context"] == folder; });
  };
  Watching watch(herdr);
  ASSERT_TRUE(watch.until([&](const Json& agents) { return here(agents) == 1; })) << watch.last();
  herdr.handOff("one");
  herdr.report("one", pane, {.status = "working"});
  ASSERT_TRUE(watch.shows("one", "working")) << watch.last();
  EXPECT_FALSE(watch.until([&](const Json& agents) { return here(agents) != 1; }, 7s)) << watch.last();
  const auto listed = runCommand({OSTREL_BIN_DIR "/ostrelctl", "agents", "--json"}, herdr.environment());
  EXPECT_EQ(here(json::parse(listed.output).value_or(Json::object()).value("agents", Json::array())), 1)
      << listed.output;
}

TEST(HerdrFollowing, AManagedSessionIsStartedWhereItIsAskedFor) {
  HerdrStandIn herdr;
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", herdr.environment(), herdr.home());
  serve.perform({{"op", "connect"}, {"managed", true}});
  EXPECT_TRUE(
      serve
          .until("agents",
                 [](const Json& event) { return event["herdr"]["status"] == "Connected · 1 sessions"; })
          .is_object());
  EXPECT_NE(herdr.server("ostrel"), 0);
}

}  // namespace
}  // namespace ostrel

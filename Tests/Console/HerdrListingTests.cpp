// `ostrelctl` over a Herdr in processes of its own: what the list says while sessions, panes and agents
// change and fail.
#include <gtest/gtest.h>

#include "Herdr/HerdrCommand.h"
#include "Peers/Herdr/HerdrStandIn.h"
#include "Support/Failures.h"

namespace ostrel {
namespace {

using namespace std::literals;
using Clock = std::chrono::steady_clock;

// A running `ostrelctl watch --json`.
class Watching {
 public:
  explicit Watching(const HerdrStandIn& herdr)
      : process_({OSTREL_BIN_DIR "/ostrelctl", "watch", "--json"}, herdr.environment()) {}

  // Reads on until the list is this: "session:state@terminal" for each agent, sorted, then Herdr's error.
  testing::AssertionResult shows(const std::string& wanted, std::chrono::milliseconds limit = 20s) {
    const auto end = Clock::now() + limit;
    std::string seen;
    while (Clock::now() < end) {
      const auto line =
          process_.line(std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now()));
      if (!line) break;
      seen += now(*line) + "\n";
      if (now(*line) == wanted) return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "wanted " << wanted << ", saw:\n" << seen;
  }

 private:
  static std::string now(const std::string& line) {
    const auto list = json::parse(line);
    if (!list || !json::member(*list, "agents")) return "(unreadable) " + line;
    std::string text;
    for (const Json& agent : (*list)["agents"]) {
      const Json& pane = agent["pane"];
      if (!pane.is_object()) continue;  // what else runs on this machine
      text += pane["session"].get<std::string>() + ":" + agent["state"].get<std::string>() + "@" +
              pane["terminal"].get<std::string>() + " ";
    }
    const Json* const herdr = json::member(*list, "herdr");
    return text + (herdr ? json::string(*herdr, "error").value_or("") : "(off)");
  }

  ChildProcess process_;
};

TEST(HerdrListing, FollowsSessionsPanesAndStates) {
  HerdrStandIn herdr;
  herdr.start("one");
  herdr.start("two");
  auto first = herdr.open("one", {"cat"});
  const auto second = herdr.open("two", {"cat"});
  herdr.report("one", first, {.agent = "claude", .status = "idle"});
  herdr.report("two", second, {.agent = "codex", .status = "working"});
  const std::string other = "two:working@" + second.terminal + " ";
  const auto one = [&](const std::string& state) { return "one:" + state + "@" + first.terminal + " "; };

  Watching watch(herdr);
  ASSERT_TRUE(watch.shows(one("idle") + other));
  // By its event, long before the slow heartbeat.
  herdr.report("one", first, {.status = "blocked"});
  EXPECT_TRUE(watch.shows(one("blocked") + other));
  herdr.move("one", first);
  EXPECT_TRUE(watch.shows(one("blocked") + other));

  // A session that does not answer hides no other one, and one that has gone comes back by itself.
  herdr.setFaults({{{"on", "agent list"}, {"session", "one"}, {"exit", 1}}});
  herdr.report("two", second, {.status = "done"});
  const std::string done = "two:done@" + second.terminal + " ";
  EXPECT_TRUE(watch.shows(done + "Could not reach: one. Retrying automatically."));
  herdr.setFaults(Json::array());
  herdr.stop("one");
  herdr.report("two", second, {.status = "working"});
  EXPECT_TRUE(watch.shows(other, 60s));
  herdr.start("one");
  const auto again = herdr.open("one", {"cat"});
  herdr.report("one", again, {.agent = "claude", .status = "idle"});
  EXPECT_TRUE(watch.shows("one:idle@" + again.terminal + " " + other, 60s));
}

TEST(HerdrListing, LooksOftenWhereThereAreNoEventsAndSaysWhenHerdrIsGone) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open("one", {"cat"});
  herdr.report("one", pane, {.agent = "claude", .status = "idle"});
  // No socket is told of: nobody subscribes.
  const Json session = {{"name", "one"}, {"running", true}};
  herdr.setFault({{"on", "session list"}, {"answer", {{"sessions", Json::array({session})}}}});
  Watching watch(herdr);
  ASSERT_TRUE(watch.shows("one:idle@" + pane.terminal + " "));
  for (const char* const state : {"working", "blocked"}) {
    herdr.report("one", pane, {.status = state});
    EXPECT_TRUE(watch.shows(std::string("one:") + state + "@" + pane.terminal + " "));
  }
  for (const std::string& command : herdr.commands()) EXPECT_NE(command, "socket one ping");
  herdr.setFaults(Json::array());
  herdr.stop("one");
  EXPECT_TRUE(watch.shows("No running Herdr sessions yet. Start Herdr; we’ll keep looking.", 60s));
}

TEST(HerdrListing, EndsWithoutHerdrInTheUsualWay) {
  HerdrStandIn herdr;
  herdr.setFaults({{{"on", "api schema"}, {"answer", "{}"}}});
  const auto run = runCommand({OSTREL_BIN_DIR "/ostrelctl", "agents", "--json"}, herdr.environment());
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(
      run.errors,
      "ostrelctl: Could not read Herdr’s API schema: Unsupported Herdr schema document. Update Herdr and try "
      "again.\n");
}

TEST(HerdrCommandTest, FailsInTheWrittenWords) {
  HerdrStandIn herdr;
  const auto failure = [&](const Json& fault, Duration limit = 30s) {
    herdr.setFault(fault);
    return failureOf([&] {
      HerdrCommand::run(herdr.executable(), {"session", "list", "--json"}, herdr.environment(), limit, {});
    });
  };
  const std::string plain = "Herdr request failed. Check the selected session and installed CLI version.";
  EXPECT_EQ(failure({{"on", "other"}}), "(no failure)");
  EXPECT_EQ(failure({{"on", "session list"}, {"exit", 1}, {"answer", "nothing of use"}}), plain);
  EXPECT_EQ(
      failure({{"on", "session list"}, {"exit", 1}, {"answer", {{"error", {{"message", "Own words"}}}}}}),
      "Own words");
  EXPECT_EQ(failure({{"on", "session list"}, {"silence", true}}, 300ms), plain);
  EXPECT_EQ(failure({{"on", "session list"}, {"oversize", true}}),
            "Herdr response exceeded the local size limit.");
}

}  // namespace
}  // namespace ostrel

// `ostrelctl` over a Herdr in processes of its own: what the list says while sessions, panes and agents
// change and fail.
#include <gtest/gtest.h>

#include "Herdr/HerdrCommand.h"
#include "Peers/Herdr/HerdrStandIn.h"
#include "Peers/Serving.h"
#include "Support/Failures.h"

namespace ostrel {
namespace {

using namespace std::literals;
// The list of an event: "session:state@terminal" for each agent, sorted, then Herdr's error.
std::string shownIn(const Json& event) {
  std::string text;
  for (const Json& agent : event["agents"]) {
    const Json& pane = agent["pane"];
    if (!pane.is_object()) continue;  // what else runs on this machine
    text += pane["session"].get<std::string>() + ":" + agent["state"].get<std::string>() + "@" +
            pane["terminal"].get<std::string>() + " ";
  }
  return text + json::string(event["herdr"], "error").value_or("");
}

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

  Serving serve(OSTREL_BIN_DIR "/ostrelctl", herdr.environment(), herdr.home());
  serve.perform({{"op", "connect"}});
  const auto shows = [&](const std::string& wanted, std::chrono::milliseconds limit = 60s) {
    return serve.until(
                    "agents", [&](const Json& event) { return shownIn(event) == wanted; }, limit)
        .is_object();
  };
  ASSERT_TRUE(shows(one("idle") + other));
  // By its event, long before the slow heartbeat.
  herdr.report("one", first, {.status = "blocked"});
  EXPECT_TRUE(shows(one("blocked") + other, 20s));
  herdr.move("one", first);
  EXPECT_TRUE(shows(one("blocked") + other));

  // A session that does not answer hides no other one, and comes back by itself.
  // What is known of it stays.
  const Json refusal{{"error", {{"code", "protocol"}, {"message", "restart the Herdr server to go on"}}}};
  herdr.setFaults({{{"on", "agent.list"}, {"session", "one"}, {"answer", refusal}},
                   {{"on", "agent list"}, {"session", "one"}, {"answer", refusal}, {"exit", 1}}});
  herdr.report("one", first, {.title = "asks for a step"});
  herdr.report("two", second, {.status = "done"});
  EXPECT_TRUE(shows(one("blocked") + "two:done@" + second.terminal +
                    " Could not reach: one (restart the Herdr server to go on). Retrying automatically."));
  herdr.setFaults(Json::array());
  herdr.report("two", second, {.status = "working"});
  EXPECT_TRUE(shows(one("blocked") + other));

  // So does one whose server went.
  herdr.stop("one");
  herdr.report("two", second, {.status = "done"});
  EXPECT_TRUE(shows("two:done@" + second.terminal + " "));
  herdr.start("one");
  first = herdr.open("one", {"cat"});
  herdr.report("one", first, {.agent = "claude", .status = "idle"});
  herdr.report("two", second, {.status = "working"});
  EXPECT_TRUE(shows(one("idle") + other));
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
  EXPECT_EQ(failure({{"on", "session list"}, {"exit", 1}, {"answer", ""}}), plain);
  EXPECT_EQ(failure({{"on", "session list"}, {"exit", 1}, {"answer", "\n plain \x1b[1mwords \nmore\n"}}),
            "plain \\x1b[1mwords");
  EXPECT_EQ(
      failure({{"on", "session list"}, {"exit", 1}, {"answer", {{"error", {{"message", "Own words"}}}}}}),
      "Own words");
  EXPECT_EQ(failure({{"on", "session list"}, {"silence", true}}, 300ms), plain);
  EXPECT_EQ(failure({{"on", "session list"}, {"oversize", true}}),
            "Herdr response exceeded the local size limit.");
}

}  // namespace
}  // namespace ostrel

#include <csignal>

#include <gtest/gtest.h>

#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrSocket.h"
#include "HerdrStandIn.h"
#include "Runtime/Files.h"
#include "Runtime/Text.h"
#include "Support/Eventually.h"
#include "Support/Failures.h"
#include "Support/ForkedProcess.h"

namespace ostrel {
namespace {

using namespace std::literals;

std::vector<HerdrAgent> agents(const HerdrStandIn& herdr, const HerdrStandIn::Place& place) {
  return HerdrProtocol::agents(herdr.run(place, {"agent", "list"}).output, "one", {});
}

class HerdrStandInTest : public testing::Test {
 protected:
  HerdrStandInTest() { herdr.start("one"); }
  // On a machine where an answer may take more than three seconds.
  std::string screen(const HerdrStandIn::Pane& pane, const std::string& source = "visible") const {
    std::string text;
    const auto answered = [&] {
      const auto read = [&] { text = HerdrSocket::read(herdr.socket("one"), pane.id, source, {}); };
      return failureOf(read) != "Herdr socket timed out.";
    };
    EXPECT_TRUE(eventually(answered));
    return text;
  }
  HerdrStandIn herdr;
};

TEST_F(HerdrStandInTest, TypingReachesTheProgramAndItsScreenIsRead) {
  const auto pane = herdr.open("one", {"sh", "-c", "stty -echo; seq 40; exec cat"});
  ASSERT_TRUE(eventually([&] { return screen(pane).ends_with("40"); }));
  EXPECT_TRUE(screen(pane).starts_with("12\n13\n")) << "the screen has 30 rows, the last one for the cursor";
  EXPECT_TRUE(screen(pane, "recent").starts_with("1\n2\n"));
  herdr.run("one", {"pane", "send-text", pane.id, "--not sent yet"});
  herdr.run("one", {"agent", "send-keys", pane.id, "enter"});
  ASSERT_TRUE(eventually([&] { return screen(pane).ends_with("\n--not sent yet"); }));
  herdr.report("one", pane, {.agent = "claude"});
  const auto prompted = herdr.run("one", {"agent", "prompt", pane.id, "Grüße"});
  EXPECT_EQ(json::string(HerdrProtocol::result(prompted.output), "type"), "agent_prompted");
  ASSERT_TRUE(eventually([&] { return screen(pane).ends_with("\nGrüße"); }));
  EXPECT_EQ(herdr.run("one", {"pane", "read", pane.id, "--source", "visible", "--format", "text"}).output,
            screen(pane));
  EXPECT_EQ(herdr.run("one", {"agent", "send-keys", pane.id, "hyper"}).status, 1);
}

TEST_F(HerdrStandInTest, AnAgentStartsInAWorkspaceAndReportsFromInside) {
  const auto script = herdr.bin() / "claude";
  files::replace(script, "#!/bin/sh\nherdr pane report --status blocked --session-ref \"$2\"\ncat\n", 0700);
  const auto made = herdr.run("one", {"workspace", "create", "--cwd", "/usr", "--label", "x", "--no-focus"});
  const Json root = HerdrProtocol::result(made.output).at("root_pane");
  const auto started = herdr.run("one", {"agent", "start", "ostrel-1", "--kind", "claude", "--pane",
                                         root.at("pane_id"), "--timeout", "20000", "--", "--resume", "it's"});
  EXPECT_EQ(started.status, 0) << started.output;
  ASSERT_TRUE(eventually([&] { return agents(herdr, "one").at(0).state == "blocked"; }));
  EXPECT_EQ(agents(herdr, "one")[0].transcriptReference, "it's");
  EXPECT_EQ(agents(herdr, "one")[0].context, "/usr");

  const auto idle = herdr.open("one", {"cat"});
  EXPECT_EQ(herdr.run("one", {"agent", "start", "n", "--kind", "codex", "--pane", idle.id, "--timeout", "1"})
                .status,
            1);
}

TEST_F(HerdrStandInTest, ATerminalIsControlledOverAStream) {
  const auto pane = herdr.open("one", {"sh", "-c", "stty -echo; echo ready; cat"});
  ASSERT_TRUE(eventually([&] { return screen(pane) == "ready"; }));
  const std::string records =
      "{\"type\":\"terminal.resize\",\"cols\":50,\"rows\":12}\n"
      "{\"type\":\"terminal.input\",\"bytes\":\"aGkN\"}\n";  // "hi" and Return
  const auto input = herdr.home() / "records";
  files::replace(input, records);
  // The input stays open until the program has answered.
  const std::string script = "(cat " + input.string() + "; while [ ! -e " + input.string() +
                             "-done ]; do sleep 0.05; done) | herdr --session one terminal session control " +
                             pane.terminal + " --cols 80 --rows 20";
  ChildProcess stream({"/bin/sh", "-c", script}, herdr.environment());
  const auto record = [&stream] { return json::parse(stream.line(30s).value_or("")).value_or(Json()); };
  Json frame = record();
  EXPECT_EQ(frame["type"], "terminal.frame");
  EXPECT_EQ(frame["encoding"], "ansi");
  EXPECT_EQ(frame["width"], 80);
  EXPECT_EQ(frame["height"], 20);
  while (frame["width"] == 80) frame = record();
  EXPECT_EQ(frame["width"], 50);
  EXPECT_EQ(frame["height"], 12);
  EXPECT_TRUE(eventually([&] { return screen(pane) == "ready\nhi"; }));
  herdr.run("one", {"pane", "close", pane.id});
  while (frame["type"] == "terminal.frame") frame = record();
  EXPECT_EQ(frame["type"], "terminal.closed");
  files::replace(input.string() + "-done", "");

  const auto unknown = herdr.run("one", {"terminal", "session", "control", "t77"});
  EXPECT_EQ(unknown.output, "");
  EXPECT_EQ(unknown.errors, "herdr: Terminal t77 was not found.\n");
}

TEST_F(HerdrStandInTest, IntegrationsAndMachinesKeepTheirState) {
  herdr.setIntegrations({{"codex", "outdated (0.9)"}});
  EXPECT_EQ(herdr.run({"integration", "install", "claude"}).status, 0);
  EXPECT_EQ(herdr.run({"integration", "install", "nothing"}).status, 2);
  const auto states = HerdrIntegration::parse(herdr.run({"integration", "status"}).output);
  ASSERT_EQ(states.size(), 18u);
  EXPECT_EQ(states[0], (HerdrIntegration{"codex", "outdated (0.9)"}));
  EXPECT_TRUE(states[1].isCurrent());

  const HerdrMachine machine{.id = "m1", .label = "Box", .target = "u@h", .session = "far"};
  herdr.setMachines({machine});
  herdr.start(machine);
  herdr.report(machine, herdr.open(machine, {"cat"}), {.agent = "claude"});
  EXPECT_EQ(agents(herdr, machine).size(), 1u);
  EXPECT_TRUE(agents(herdr, "one").empty());
  EXPECT_EQ(herdr.run({"machine", "disable", "m1"}).status, 0);
  EXPECT_EQ(herdr.run(machine, {"agent", "list"}).status, 1);
  EXPECT_EQ(herdr.run({"machine", "list", "--json"}).output,
            R"([{"enabled":false,"id":"m1","label":"Box","session":"far","target":"u@h"}])"
            "\n");
}

TEST(HerdrStandIn, ItEndsWithItsOwner) {
  HerdrStandIn herdr;
  const ForkedProcess owner;
  auto variables = herdr.environment();
  variables["STANDIN_HERDR_OWNER"] = std::to_string(owner.pid());
  runCommand({herdr.executable(), "--session", "one", "session", "start"}, variables);
  const auto file = herdr.home() / "pid";
  herdr.open("one", {"sh", "-c", "echo $$ > " + file.string() + "; trap '' HUP TERM; cat"});
  std::optional<long long> pid;
  ASSERT_TRUE(eventually([&] {
    const auto written = files::read(file);
    if (written) pid = text::parseInteger(text::trim(*written));
    return pid.has_value();
  }));
  owner.kill();
  EXPECT_TRUE(eventually([&] { return !std::filesystem::exists(herdr.socket("one")); }));
  EXPECT_TRUE(eventually([&] { return ::kill(static_cast<pid_t>(*pid), 0) != 0; }));
}

}  // namespace
}  // namespace ostrel

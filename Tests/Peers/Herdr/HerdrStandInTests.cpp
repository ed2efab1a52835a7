#include <atomic>
#include <csignal>
#include <functional>
#include <thread>

#include <gtest/gtest.h>

#include "Herdr/HerdrIntegrations.h"
#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrSocket.h"
#include "HerdrStandIn.h"
#include "Runtime/Failure.h"
#include "Runtime/Files.h"
#include "Runtime/Subprocess.h"
#include "Runtime/Text.h"
#include "Support/ForkedProcess.h"

namespace ostrel {
namespace {

using namespace std::literals;

// A loaded machine may take long.
bool eventually(const std::function<bool()>& condition) {
  for (int i = 0; i < 3000; ++i) {
    if (condition()) return true;
    std::this_thread::sleep_for(10ms);
  }
  return false;
}

std::string failureOf(const std::function<void()>& work) {
  try {
    work();
  } catch (const Failure& failure) {
    return failure.message();
  }
  return "(no failure)";
}

std::vector<HerdrAgent> agents(const HerdrStandIn& herdr, const HerdrStandIn::Place& place) {
  return HerdrProtocol::agents(herdr.run(place, {"agent", "list"}).output, "one", {});
}

class HerdrStandInTest : public testing::Test {
 protected:
  HerdrStandInTest() { herdr.start("one"); }
  std::string read(const HerdrStandIn::Pane& pane, const std::string& source = "visible") const {
    return HerdrSocket::read(herdr.socket("one"), pane.id, source, {});
  }
  // The same on a machine where an answer may take more than three seconds.
  std::string screen(const HerdrStandIn::Pane& pane, const std::string& source = "visible") const {
    std::string text;
    const auto answered = [&] {
      return failureOf([&] { text = read(pane, source); }) != "Herdr socket timed out.";
    };
    EXPECT_TRUE(eventually(answered));
    return text;
  }
  HerdrStandIn herdr;
};

TEST_F(HerdrStandInTest, SessionsAndTheirAgentsAreListed) {
  herdr.start("two");
  herdr.start("gone");
  herdr.stop("gone");
  const std::string list = herdr.run({"session", "list", "--json"}).output;
  EXPECT_EQ(HerdrProtocol::sessions(list), (std::vector<std::string>{"one", "two"}));
  EXPECT_NE(list.find(herdr.socket("one")), std::string::npos);
  EXPECT_FALSE(std::filesystem::exists(herdr.socket("gone")));

  auto pane = herdr.open("one", {"cat"}, "/usr");
  EXPECT_TRUE(agents(herdr, "one").empty());
  herdr.report("one", pane, {.agent = "claude", .status = "working", .title = "Fix it", .reference = "abc"});
  auto listed = agents(herdr, "one");
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0].paneID, pane.id);
  EXPECT_EQ(listed[0].terminalID, pane.terminal);
  EXPECT_EQ(listed[0].provider + " " + listed[0].state + " " + listed[0].title, "claude working Fix it");
  EXPECT_EQ(listed[0].context, "/usr");
  EXPECT_EQ(listed[0].transcriptReference, "abc");
  EXPECT_TRUE(agents(herdr, "two").empty());

  const std::string before = pane.terminal;
  herdr.move("one", pane);
  EXPECT_NE(pane.terminal, before);
  EXPECT_EQ(agents(herdr, "one").at(0).terminalID, pane.terminal);
  EXPECT_EQ(herdr.run("one", {"pane", "close", pane.id}).status, 0);
  EXPECT_TRUE(agents(herdr, "one").empty());
}

TEST_F(HerdrStandInTest, EventsArriveForWhatWasSubscribed) {
  const auto watched = herdr.open("one", {"cat"});
  const auto other = herdr.open("one", {"cat"});
  for (const auto& pane : {watched, other}) herdr.report("one", pane, {.agent = "codex", .status = "idle"});
  std::atomic<int> received = 0;
  const std::vector<std::string> panes = {watched.id};
  std::jthread listener([&](const std::stop_token& stop) {
    try {
      HerdrSocket::events(herdr.socket("one"), 12, panes, [&] { ++received; }, stop);
    } catch (const Cancelled&) {
    }
  });
  ASSERT_TRUE(eventually([&] { return received == 1; }));
  herdr.report("one", other, {.status = "working"});  // of no interest
  herdr.report("one", watched, {.status = "working"});
  ASSERT_TRUE(eventually([&] { return received >= 2; }));
  herdr.open("one", {"true"});  // created, exited
  EXPECT_TRUE(eventually([&] { return received >= 4; }));
  EXPECT_EQ(received, 4);
}

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

TEST_F(HerdrStandInTest, CommandsFailOnDemand) {
  herdr.report("one", herdr.open("one", {"cat"}), {.agent = "claude"});
  const auto list = [&](Json fault) {
    fault.update({{"on", "agent list"}, {"session", "one"}});
    herdr.setFault(fault);
    return herdr.run("one", {"agent", "list"});
  };
  EXPECT_EQ(list({{"exit", 3}, {"answer", "boom"}}).status, 3);
  EXPECT_EQ(failureOf([&] {
              HerdrProtocol::result(list({{"exit", 1}, {"answer", {{"error", {{"message", "no"}}}}}}).output);
            }),
            "no");
  EXPECT_EQ(list({{"answer", "not json"}}).output, "not json");
  EXPECT_GT(list({{"oversize", true}}).output.size(), 8'000'000u);
  EXPECT_EQ(list({{"cut", "kill"}}).status, 128 + SIGKILL);
  const std::string twice = list({{"duplicatePane", true}}).output;
  EXPECT_EQ(failureOf([&] { HerdrProtocol::agents(twice, "one", {}); }),
            "Herdr returned a missing or duplicate pane identifier.");
  herdr.setFault({{"on", "agent list"}, {"silence", true}});
  const auto hung = Subprocess::run(herdr.executable(), {"--session", "one", "agent", "list"},
                                    herdr.environment(), 500ms, 1000);
  EXPECT_EQ(hung.end, Subprocess::End::timedOut);
  herdr.setFaults(Json::array());
  EXPECT_EQ(agents(herdr, "one").size(), 1u);
  EXPECT_EQ(herdr.commands().back(), "--session one agent list");
}

TEST_F(HerdrStandInTest, TheSocketFailsOnDemand) {
  const auto pane = herdr.open("one", {"cat"});
  const auto failure = [&](const Json& fault) {
    herdr.setFault(fault);
    return failureOf([&] { read(pane); });
  };
  EXPECT_EQ(failure({{"on", "pane.read"}, {"cut", "close"}}), "Herdr disconnected.");
  EXPECT_EQ(failure({{"on", "pane.read"}, {"oversize", true}}), "Herdr response exceeded its size limit.");
  EXPECT_EQ(failure({{"on", "pane.read"}, {"answer", "[]\n"}}), "Herdr returned an unsupported response.");
  EXPECT_EQ(failure({{"on", "pane.read"}, {"session", "two"}, {"answer", "[]\n"}}), "(no failure)");
  const auto before = std::chrono::steady_clock::now();
  EXPECT_EQ(failure({{"on", "pane.read"}, {"delay", 0.2}}), "(no failure)");
  EXPECT_GE(std::chrono::steady_clock::now() - before, 200ms);

  herdr.setFault({{"on", "ping"}, {"protocol", 99}});
  EXPECT_EQ(failureOf([&] { HerdrSocket::events(herdr.socket("one"), 12, {}, [] {}, {}); }),
            "Herdr API version changed.");
  herdr.setFault({{"on", "ping"}, {"silence", true}});
  HerdrSocket::Wire wire(herdr.socket("one"));
  wire.send("1", "ping", Json::object());
  EXPECT_EQ(failureOf([&] { wire.next(std::chrono::steady_clock::now() + 100ms, {}); }),
            "Herdr socket timed out.");
  herdr.setFault({{"on", "event"}, {"answer", "not json\n"}});
  EXPECT_EQ(failureOf([&] {
              HerdrSocket::events(herdr.socket("one"), 12, {}, [&] { herdr.open("one", {"cat"}); }, {});
            }),
            "Herdr sent an event that is no JSON.");
  EXPECT_EQ(failure({{"on", "pane.read"}, {"cut", "kill"}}), "Herdr disconnected.");
  EXPECT_EQ(failure(Json::object()), "Herdr socket is unavailable.");
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

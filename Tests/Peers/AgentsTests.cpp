// The main job on real input: what `ostrelctl` says of the real Claude Code and Codex while they start, work,
// ask and end.
#include <csignal>
#include <filesystem>

#include <gtest/gtest.h>

#include "Herdr/HerdrStandIn.h"
#include "PeerWorld.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string field(const Json& agent, std::string_view key) {
  return json::string(agent, key).value_or("(none)");
}

// A running `ostrelctl watch --json`, read for what it says of the one agent of a folder.
class Watching {
 public:
  Watching(const PeerWorld& world, fs::path folder)
      : folder_(std::move(folder)), process_({world.ostrelctl(), "watch", "--json"}, world.variables()) {}

  // Reads on until the agent's state and light are these ("gone" for no agent).
  testing::AssertionResult shows(const std::string& wanted, std::chrono::milliseconds limit = 20s) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < end) {
      const auto line = process_.line(
          std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()));
      if (!line) break;
      seen_ += now(*line) + "; ";
      if (now(*line) == wanted) return testing::AssertionSuccess();
    }
    return testing::AssertionFailure() << "wanted " << wanted << ", saw: " << seen_;
  }

 private:
  std::string now(const std::string& line) const {
    const auto list = json::parse(line);
    if (!list || !json::member(*list, "agents")) return "(unreadable) " + line;
    for (const Json& agent : (*list)["agents"]) {
      if (field(agent, "context") == folder_.string())
        return field(agent, "state") + " " + field(agent, "light");
    }
    return "gone";
  }

  fs::path folder_;
  ChildProcess process_;
  std::string seen_;
};

TEST(RealClaude, IsListedAndFollowedThroughItsStates) {
  PeerWorld world;
  const fs::path folder = world.project("proj-é");
  Watching watch(world, folder);
  EXPECT_TRUE(watch.shows("gone"));

  Terminal terminal(world, folder, world.claude());
  // "done": it fell quiet after `watch` started, and nobody has looked at it.
  ASSERT_TRUE(watch.shows("idle done")) << terminal.screen();
  auto agents = world.agentsIn(folder);
  ASSERT_EQ(agents.size(), 1u);
  EXPECT_EQ(field(agents[0], "provider"), "claude");
  EXPECT_EQ(field(agents[0], "state"), "idle");
  EXPECT_EQ(field(agents[0], "light"), "idle");
  EXPECT_EQ(field(agents[0], "title"), "Claude · proj-é");
  EXPECT_EQ(agents[0]["id"], "8:external" + std::to_string(agents[0]["pid"].get<int>()) +
                                 field(agents[0], "id").substr(field(agents[0], "id").find(':', 2)));

  terminal.submit("Please wait [hold]");
  ASSERT_TRUE(watch.shows("working working")) << terminal.screen();
  world.model().release();
  ASSERT_TRUE(watch.shows("idle done")) << terminal.screen();

  terminal.submit("Make the file [run touch made-by-claude]");
  ASSERT_TRUE(watch.shows("blocked needsYou")) << terminal.screen();
  agents = world.agentsIn(folder);
  ASSERT_EQ(agents.size(), 1u);
  EXPECT_EQ(field(agents[0], "state"), "blocked");
  EXPECT_EQ(field(agents[0], "light"), "needsYou");
  // The session goes by its id; the file that holds it is found, and the title comes from it.
  EXPECT_EQ(field(agents[0]["transcript"], "kind"), "id");
  const fs::path transcript = field(agents[0]["transcript"], "path");
  EXPECT_EQ(transcript.stem(), field(agents[0]["transcript"], "reference"));
  EXPECT_TRUE(fs::exists(transcript));
  EXPECT_EQ(field(agents[0], "title"), "Talking to a stub");
  EXPECT_FALSE(fs::exists(folder / "made-by-claude"));

  terminal.key("Enter");  // "Yes"
  ASSERT_TRUE(watch.shows("idle done")) << terminal.screen();
  EXPECT_TRUE(fs::exists(folder / "made-by-claude"));

  ::kill(agents[0]["pid"].get<pid_t>(), SIGTERM);
  EXPECT_TRUE(watch.shows("gone"));
  EXPECT_TRUE(world.agentsIn(folder).empty());
}

TEST(RealClaude, SessionsOfOneFolderAreToldApart) {
  PeerWorld world;
  const fs::path folder = world.project("shared");
  Terminal first(world, folder, world.claude());
  ASSERT_TRUE(eventually([&] { return world.agentsIn(folder).size() == 1; })) << first.screen();
  const fs::path other = world.project("other");
  // A second terminal, beginning elsewhere but working in the same folder.
  Terminal second(world, other, {"sh", "-c", "cd '" + folder.string() + "' && exec claude"});
  ASSERT_TRUE(eventually([&] {
    const auto agents = world.agentsIn(folder);
    return agents.size() == 2 && field(agents[0], "state") == "idle" && field(agents[1], "state") == "idle";
  })) << second.screen();
  second.submit("Make the file [run touch made-by-second]");
  ASSERT_TRUE(eventually([&] {
    const auto agents = world.agentsIn(folder);
    return agents.size() == 2 &&
           (field(agents[0], "state") == "blocked") != (field(agents[1], "state") == "blocked");
  })) << second.screen();
  const auto agents = world.agentsIn(folder);
  EXPECT_NE(agents[0]["transcript"]["reference"], agents[1]["transcript"]["reference"]);
}

TEST(RealClaude, IsShownOnceWhereAPaneHasTheSameConversation) {
  PeerWorld world;
  const fs::path folder = world.project("twice");
  Terminal terminal(world, folder, world.claude());
  ASSERT_TRUE(eventually([&] {
    const auto agents = world.agentsIn(folder);
    return agents.size() == 1 && field(agents[0], "state") == "idle";
  })) << terminal.screen();
  const Json outside = world.agentsIn(folder)[0];

  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open("one", {"cat"}, folder.string());
  herdr.report("one", pane, {.agent = "claude", .status = "working"});
  ChildProcess::Variables both = world.variables();
  both["PATH"] = herdr.bin().string() + ":" + both["PATH"];
  for (const char* const name : {"STANDIN_HERDR_HOME", "STANDIN_HERDR_OWNER"})
    both[name] = herdr.environment().at(name);
  const auto listed = [&] {
    std::string providers;
    const auto run = runCommand({world.ostrelctl(), "agents", "--json"}, both);
    for (const Json& agent :
         json::parse(run.output).value_or(Json::object()).value("agents", Json::array())) {
      if (field(agent, "context") == folder.string())
        providers += agent["pid"].is_null() ? "pane " : "process ";
    }
    return providers;
  };
  EXPECT_EQ(listed(), "pane process ");
  herdr.report("one", pane, {.reference = field(outside["transcript"], "reference"), .referenceKind = "id"});
  EXPECT_EQ(listed(), "pane ");
}

TEST(RealClaude, OneShotRunsAreNoAgents) {
  PeerWorld world;
  const fs::path folder = world.project("oneshot");
  ChildProcess print({"sh", "-c", "cd '" + folder.string() + "' && exec claude -p 'Please wait [hold]'"},
                     world.variables());
  ASSERT_TRUE(eventually([&] { return !world.model().requests().empty(); }));
  EXPECT_TRUE(world.agentsIn(folder).empty());  // no terminal: nobody to talk to
  world.model().release();
  EXPECT_EQ(print.finish().output, "Understood.\n");
}

TEST(RealClaude, APrintingRunOnATerminalWorksWhileItLives) {
  PeerWorld world;
  const fs::path folder = world.project("printing");
  Watching watch(world, folder);
  EXPECT_TRUE(watch.shows("gone"));
  Terminal terminal(world, folder, {"claude", "-p", "Please wait [hold]"});
  ASSERT_TRUE(watch.shows("working working")) << terminal.screen();
  world.model().release();
  EXPECT_TRUE(watch.shows("gone"));
}

TEST(RealClaude, AsksFromTheTerminalThatIsNotShownToo) {
  PeerWorld world;
  const fs::path folder = world.project("both");
  Terminal first(world, folder, world.claude());
  const auto row = [&] {
    const auto agents = world.agentsIn(folder);
    return agents.size() == 1 ? agents[0] : Json::object();
  };
  ASSERT_TRUE(eventually([&] { return row().value("state", "") == "idle"; })) << first.screen();
  first.submit("Hello there");
  ASSERT_TRUE(eventually([&] { return row()["transcript"].value("path", Json()).is_string(); }))
      << first.screen();
  ASSERT_TRUE(eventually([&] { return row().value("state", "") == "idle"; })) << first.screen();
  const Json shown = row();
  Terminal second(
      world, world.project("elsewhere"),
      {"sh", "-c",
       "cd '" + folder.string() + "' && exec claude --resume " + field(shown["transcript"], "reference")});
  const fs::path sessions = world.home() / ".claude/sessions";
  const auto ready = [&] {
    return std::ranges::distance(fs::directory_iterator(sessions), fs::directory_iterator()) == 2 &&
           second.screen().contains("Hello there");
  };
  ASSERT_TRUE(eventually(ready)) << second.screen();
  // Whichever of the two is the row, each asks once.
  for (const Terminal* const asking : {&second, &first}) {
    asking->submit("Make the file [run touch made-by-one]");
    EXPECT_TRUE(eventually([&] { return row().value("light", "") == "needsYou"; })) << asking->screen();
    EXPECT_EQ(row().value("state", ""), "blocked");
    asking->key("Escape");
    EXPECT_TRUE(eventually([&] { return row().value("state", "") == "idle"; })) << asking->screen();
  }
}

TEST(RealCodex, IsListedOnceWithItsRollout) {
  PeerWorld world;
  const fs::path folder = world.project("codex-proj");
  auto command = world.codex();
  command.emplace_back("--no-daemon");
  Watching watch(world, folder);
  Terminal terminal(world, folder, command);
  // Until its first turn it has told nothing; from then on the file of its conversation tells.
  ASSERT_TRUE(watch.shows("unknown idle")) << terminal.screen();
  auto agents = world.agentsIn(folder);
  ASSERT_EQ(agents.size(), 1u);  // the launcher is not a second one
  EXPECT_EQ(field(agents[0], "provider"), "codex");
  EXPECT_EQ(field(agents[0], "title"), "Codex · codex-proj");
  EXPECT_TRUE(agents[0]["transcript"].is_null());

  ASSERT_TRUE(eventually([&] { return terminal.screen().find("stub-model") != std::string::npos; }))
      << terminal.screen();
  terminal.submit("Please wait [hold]");
  ASSERT_TRUE(watch.shows("working working")) << terminal.screen();
  agents = world.agentsIn(folder);
  ASSERT_EQ(agents.size(), 1u);
  EXPECT_EQ(field(agents[0]["transcript"], "kind"), "path");
  const fs::path transcript = field(agents[0]["transcript"], "path");
  EXPECT_TRUE(transcript.string().starts_with((world.home() / ".codex/sessions/").string())) << transcript;
  EXPECT_TRUE(fs::exists(transcript));
  world.model().release();
  EXPECT_TRUE(watch.shows("idle done", 2s)) << terminal.screen();
  terminal.submit("Once more, and quick");
  EXPECT_TRUE(watch.shows("working working", 3s)) << terminal.screen();
  EXPECT_TRUE(watch.shows("idle done", 3s)) << terminal.screen();

  ::kill(agents[0]["pid"].get<pid_t>(), SIGTERM);
  EXPECT_TRUE(watch.shows("gone"));
}

// What it asks its terminal stands in no line, but the tool's call does: after a minute it does not count as
// working any more, and when it goes on it does.
TEST(RealCodex, AskingItsTerminalItDoesNotWorkForEver) {
  PeerWorld world;
  const fs::path folder = world.project("asks");
  auto command = world.codex();
  command.emplace_back("--no-daemon");
  Watching watch(world, folder);
  Terminal terminal(world, folder, command);
  ASSERT_TRUE(watch.shows("unknown idle")) << terminal.screen();
  ASSERT_TRUE(eventually([&] { return terminal.screen().find("stub-model") != std::string::npos; }))
      << terminal.screen();
  terminal.submit("Make it [run touch made]");
  ASSERT_TRUE(watch.shows("working working")) << terminal.screen();
  ASSERT_TRUE(eventually([&] { return terminal.screen().find("Yes, proceed") != std::string::npos; }))
      << terminal.screen();
  EXPECT_TRUE(watch.shows("unknown idle", 80s)) << terminal.screen();
  terminal.key("Enter");
  EXPECT_TRUE(watch.shows("idle done", 10s)) << terminal.screen();
  EXPECT_TRUE(fs::exists(folder / "made"));
}

TEST(RealCodex, ServersAreNoAgents) {
  PeerWorld world;
  const fs::path folder = world.project("server");
  auto command = world.codex();
  command.insert(command.end(), {"app-server", "--listen", "unix://"});
  Terminal terminal(world, folder, command);
  const fs::path socket = world.home() / ".codex/app-server-control/app-server-control.sock";
  ASSERT_TRUE(eventually([&] { return fs::exists(socket); })) << terminal.screen();
  EXPECT_TRUE(world.agentsIn(folder).empty());
}

}  // namespace
}  // namespace ostrel

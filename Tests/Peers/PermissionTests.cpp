// The real Claude Code asks through its hook, and does what the server tells it.
#include <algorithm>
#include <csignal>

#include <gtest/gtest.h>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/ClaudePermissions.h"
#include "PeerWorld.h"
#include "Runtime/EpollLoop.h"
#include "Serving.h"
#include "Support/MemoryPreferences.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using Answer = ClaudePermissionAnswer;

struct RealClaudePermissions : testing::Test {
  RealClaudePermissions() {
    server.start();
    MemoryPreferences none;
    ClaudePermissions(environment, fs::path(world.ostrelctl()).parent_path() / "Ostrel", none)
        .installAtLaunch();
  }
  bool eventually(const std::function<bool()>& condition) {
    return ostrel::eventually([&] {
      while (loop.dispatch()) continue;
      return condition();
    });
  }
  std::optional<std::string> state() const {
    const auto agents = world.agentsIn(folder);
    return agents.size() == 1 ? json::string(agents[0], "state") : std::nullopt;
  }
  bool idle() {
    return eventually([&] { return state() == "idle"; });
  }
  void answer(const Answer& given) { server.answer(server.requests()->front(), given); }
  // Whether the conversation's transcript comes to hold `words`.
  bool told(const std::string& words) {
    return eventually([&] {
      return runCommand({"grep", "-rqF", words, world.home() / ".claude/projects"}, world.variables())
                 .status == 0;
    });
  }

  PeerWorld world;
  const fs::path folder = world.project("asking");
  const Environment environment{{}, world.home(), {}};
  EpollLoop loop;
  ClaudePermissionServer server{loop, ClaudePermissions::socketPath(environment)};
};

TEST_F(RealClaudePermissions, DoesAsItIsAnswered) {
  Terminal terminal(world, folder, world.claude());
  const auto asks = [&](const std::string& prompt) {
    if (!idle()) return false;
    terminal.submit(prompt);
    return eventually([&] { return !server.requests()->empty(); });
  };
  const auto made = [&](const char* file) { return eventually([&] { return fs::exists(folder / file); }); };
  ASSERT_TRUE(asks("Please [run touch allowed]")) << terminal.screen();
  EXPECT_EQ(server.requests()->front().detail, "touch allowed");
  answer({Answer::Allow{}});
  EXPECT_TRUE(made("allowed")) << terminal.screen();

  ASSERT_TRUE(asks(
      R"([use AskUserQuestion {"questions":[{"question":"Which one?","header":"One","multiSelect":false,)"
      R"("options":[{"label":"Left","description":"l"},{"label":"Right","description":"r"}]},)"
      R"({"question":"Which colours?","header":"Many","multiSelect":true,)"
      R"("options":[{"label":"Red","description":"r"},{"label":"Blue","description":"b"}]},)"
      R"({"question":"How?","header":"Own","multiSelect":false,)"
      R"("options":[{"label":"Fast","description":"f"},{"label":"Slow","description":"s"}]}]}])"))
      << terminal.screen();
  answer({Answer::Answers{
      {{"Which one?", {"Right"}}, {"Which colours?", {"Red", "Blue"}}, {"How?", {"In my own words"}}}}});
  EXPECT_TRUE(
      told(R"(\"Which one?\"=\"Right\", \"Which colours?\"=\"Red, Blue\", \"How?\"=\"In my own words\")"))
      << terminal.screen();

  // The rule is kept, and the next command under it asks nobody.
  ASSERT_TRUE(asks("Please [run git init one]")) << terminal.screen();
  ASSERT_EQ(server.requests()->front().alwaysRules, std::vector<std::string>{"Bash(git init *)"});
  answer({Answer::AllowAlways{}});
  EXPECT_TRUE(made("one/.git") && idle()) << terminal.screen();
  EXPECT_NE(runCommand({"cat", folder / ".claude/settings.local.json"}, world.variables())
                .output.find("Bash(git init *)"),
            std::string::npos);
  terminal.submit("Please [run git init two]");
  EXPECT_TRUE(made("two/.git")) << terminal.screen();
  EXPECT_TRUE(server.requests()->empty());

  // Answered in the terminal: the hook is left waiting, and only the agent's state tells.
  ASSERT_TRUE(asks("Please [run touch by-hand]")) << terminal.screen();
  terminal.key("Enter");
  EXPECT_TRUE(made("by-hand") && idle()) << terminal.screen();
  EXPECT_TRUE(eventually([&] {
    server.reconcilePermissions([&](std::string_view) -> std::optional<ClaudePermissionServer::SeenState> {
      const auto seen = state();
      return seen ? std::optional(ClaudePermissionServer::SeenState{stateNamed(*seen), loop.now()})
                  : std::nullopt;
    });
    return server.requests()->empty();
  }));

  ASSERT_TRUE(asks("Please [run touch denied]")) << terminal.screen();
  answer({Answer::Deny{}});
  ASSERT_TRUE(idle()) << terminal.screen();
  EXPECT_FALSE(fs::exists(folder / "denied"));
}

// After a compaction the person's words are theirs: the command as typed, and no word of the program's.
TEST(RealClaudeServed, ACompactionIsNotThePersonsWords) {
  PeerWorld world;
  const fs::path folder = world.project("compacted");
  Serving serve(world.ostrelctl(), world.variables(), world.home());
  Terminal terminal(world, folder, world.claude());
  const auto row = [&](const std::string& state) {
    Json found;
    serve.until("agents", [&](const Json& event) {
      for (const Json& agent : event["agents"]) {
        if (agent["context"] == folder.string() && agent["state"] == state) found = agent;
      }
      return !found.is_null();
    });
    return found;
  };
  ASSERT_FALSE(row("idle").is_null()) << terminal.screen();
  const Json agent = row("idle");
  EXPECT_TRUE(serve.perform({{"op", "select"}, {"agent", agent["id"]}})["ok"]);
  // A shorter conversation is not compacted.
  for (std::size_t i = 1; i <= 4; ++i) {
    terminal.submit("Hello " + std::to_string(i));
    ASSERT_TRUE(
        serve.until("transcript", [&](const Json& event) { return event["messages"].size() == 2 * i; })
            .is_object())
        << terminal.screen();
    ASSERT_FALSE(row("idle").is_null()) << terminal.screen();
  }
  terminal.submit("/compact only the plan");
  std::vector<std::string> words;
  bool folded = false;
  const Json transcript = serve.until("transcript", [&](const Json& event) {
    words.clear();
    folded = false;
    for (const Json& message : event["messages"]) {
      const std::string text = message["text"];
      if (message["role"] == "user") words.push_back(text);
      folded |= message["role"] == "activity" && text.contains("continued from a previous conversation");
    }
    return folded && std::ranges::find(words, "/compact only the plan") != words.end();
  });
  EXPECT_TRUE(transcript.is_object()) << folded << " " << Json(words) << terminal.screen();
  for (const std::string& text : words)
    EXPECT_FALSE(text.starts_with('<') || text.contains('\x1B') || text.contains("continued from")) << text;
}

// The front end over standard input and output, two sessions at once.
TEST(RealClaudeServed, IsAnsweredThroughServeAndOutlivesIt) {
  PeerWorld world;
  const fs::path folder = world.project("served");
  const fs::path other = world.project("other");
  std::optional<Serving> serve(std::in_place, world.ostrelctl(), world.variables(), world.home());
  ASSERT_TRUE(serve->until("agents", [](const Json& event) { return event["scanned"] == true; }).is_object());
  Terminal terminal(world, folder, world.claude());
  Terminal second(world, other, world.claude());
  const auto idle = [&](const fs::path& where) {
    return serve
        ->until("agents",
                [&](const Json& event) {
                  return std::ranges::any_of(event["agents"], [&](const Json& agent) {
                    return agent["context"] == where.string() && agent["state"] == "idle";
                  });
                })
        .is_object();
  };
  const auto asked = [&](const std::string& command) {
    const Json event = serve->until("permissions", [&](const Json& permissions) {
      return std::ranges::any_of(permissions["requests"],
                                 [&](const Json& request) { return request["detail"] == command; });
    });
    for (const Json& request : event.is_object() ? event["requests"] : Json::array()) {
      if (request["detail"] == command) return request;
    }
    return Json::object();
  };
  const auto answer = [&](const Json& request, Json decision) {
    decision["op"] = "answer";
    decision["request"] = request.value("id", "");
    return serve->perform(decision)["ok"] == true;
  };
  const auto made = [&](const fs::path& file) { return eventually([&] { return fs::exists(file); }); };

  ASSERT_TRUE(idle(folder)) << terminal.screen();
  ASSERT_TRUE(idle(other)) << second.screen();
  terminal.submit("Please [run touch one]");
  second.submit("Please [run touch two]");
  const Json one = asked("touch one");
  const Json two = asked("touch two");
  ASSERT_TRUE(answer(two, {{"decision", "deny"}, {"message", "Use the other folder"}})) << second.screen();
  ASSERT_TRUE(answer(one, {{"decision", "allow"}})) << terminal.screen();
  EXPECT_FALSE(answer(one, {{"decision", "allow"}})) << "given once";
  EXPECT_TRUE(made(folder / "one")) << terminal.screen();
  EXPECT_TRUE(eventually([&] {
    return runCommand({"grep", "-rqF", "Use the other folder", world.home() / ".claude/projects"},
                      world.variables())
               .status == 0;
  })) << "the words reach Claude";
  EXPECT_FALSE(fs::exists(other / "two"));

  // Its conversation, message by message.
  const Json listed = serve->until("agents", [](const Json&) { return true; });
  for (const Json& agent : listed["agents"]) {
    if (agent["context"] != folder.string()) continue;
    EXPECT_TRUE(serve->perform({{"op", "select"}, {"agent", agent["id"]}})["ok"]);
  }
  EXPECT_TRUE(serve
                  ->until("transcript",
                          [](const Json& event) {
                            return std::ranges::any_of(event["messages"], [](const Json& message) {
                              return message["text"].get<std::string>().find("[run touch one]") !=
                                     std::string::npos;
                            });
                          })
                  .is_object());

  // Killed while a prompt waits: Claude's own prompt goes on working.
  ASSERT_TRUE(idle(folder)) << terminal.screen();
  terminal.submit("Please [run touch three]");
  ASSERT_EQ(asked("touch three")["tool"], "Bash") << terminal.screen();
  serve->process().signal(SIGKILL);
  serve.reset();
  terminal.key("Enter");
  EXPECT_TRUE(made(folder / "three")) << terminal.screen();
}

}  // namespace
}  // namespace ostrel

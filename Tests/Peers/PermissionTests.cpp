// The real Claude Code asks through its hook, and does what the server tells it.
#include <gtest/gtest.h>

#include "Claude/ClaudePermissionServer.h"
#include "Claude/ClaudePermissions.h"
#include "PeerWorld.h"
#include "Runtime/EpollLoop.h"
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
      R"("options":[{"label":"Red","description":"r"},{"label":"Blue","description":"b"}]}]}])"))
      << terminal.screen();
  answer({Answer::Answers{{{"Which one?", {"Right"}}, {"Which colours?", {"Red", "Blue"}}}}});
  EXPECT_TRUE(told(R"(\"Which one?\"=\"Right\", \"Which colours?\"=\"Red,Blue\")")) << terminal.screen();

  // Answered in the terminal: the hook is left waiting, and only the agent's state tells.
  ASSERT_TRUE(asks("Please [run touch by-hand]")) << terminal.screen();
  terminal.key("Enter");
  EXPECT_TRUE(made("by-hand") && idle()) << terminal.screen();
  EXPECT_TRUE(eventually([&] {
    server.reconcilePermissions([&](std::string_view) { return state(); });
    return server.requests()->empty();
  }));

  ASSERT_TRUE(asks("Please [run touch denied]")) << terminal.screen();
  answer({Answer::Deny{}});
  ASSERT_TRUE(idle()) << terminal.screen();
  EXPECT_FALSE(fs::exists(folder / "denied"));
}

}  // namespace
}  // namespace ostrel

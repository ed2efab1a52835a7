// The real Claude Code asks through its hook, and does what the server tells it.
#include <filesystem>
#include <fstream>
#include <sstream>

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

class RealClaudePermissions : public testing::Test {
 protected:
  RealClaudePermissions() {
    server.start();
    permissions.installAtLaunch();
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
  bool asked() {
    return eventually([&] { return !server.requests()->empty(); });
  }
  void answer(const Answer& given) {
    server.answer(ClaudePermissionRequest(server.requests()->front()), given);
  }
  // Whether the conversation's transcript holds `words`.
  bool told(std::string_view words) const {
    std::ostringstream all;
    for (const auto& entry : fs::recursive_directory_iterator(world.home() / ".claude/projects")) {
      if (entry.path().extension() == ".jsonl") all << std::ifstream(entry.path()).rdbuf();
    }
    return all.str().contains(words);
  }

  PeerWorld world;
  const fs::path folder = world.project("asking");
  const Environment environment{{}, world.home(), {}};
  MemoryPreferences preferences;
  ClaudePermissions permissions{environment, fs::path(world.ostrelctl()).parent_path() / "Ostrel",
                                preferences};
  EpollLoop loop;
  ClaudePermissionServer server{loop, ClaudePermissions::socketPath(environment)};
};

TEST_F(RealClaudePermissions, CommandsRunAsAnswered) {
  Terminal terminal(world, folder, world.claude());
  ASSERT_TRUE(idle()) << terminal.screen();
  terminal.submit("Please [run touch allowed]");
  ASSERT_TRUE(asked()) << terminal.screen();
  EXPECT_EQ(server.requests()->front().title, "Run what was asked for");
  EXPECT_EQ(server.requests()->front().detail, "touch allowed");
  EXPECT_FALSE(fs::exists(folder / "allowed"));
  answer({Answer::Allow{}});
  EXPECT_TRUE(eventually([&] { return fs::exists(folder / "allowed"); })) << terminal.screen();
  ASSERT_TRUE(idle());

  terminal.submit("Please [run touch redirected]");
  ASSERT_TRUE(asked()) << terminal.screen();
  answer({Answer::Deny{"Use another name."}});
  EXPECT_TRUE(eventually([&] { return told("Use another name."); })) << terminal.screen();
  ASSERT_TRUE(idle());
  terminal.submit("Please [run git tag nothing-here]");
  ASSERT_TRUE(asked()) << terminal.screen();
  ASSERT_FALSE(server.requests()->front().alwaysRules.empty());
  answer({Answer::AllowAlways{}});
  EXPECT_TRUE(eventually([&] { return fs::exists(folder / ".claude/settings.local.json"); }))
      << terminal.screen();
  ASSERT_TRUE(idle());

  // Answered in the terminal: the hook is left waiting, and only the agent's state tells.
  terminal.submit("Please [run touch by-hand]");
  ASSERT_TRUE(asked()) << terminal.screen();
  terminal.key("Enter");
  EXPECT_TRUE(eventually([&] { return fs::exists(folder / "by-hand"); })) << terminal.screen();
  ASSERT_TRUE(idle());
  EXPECT_TRUE(eventually([&] {
    server.reconcilePermissions([&](std::string_view) { return state(); });
    return server.requests()->empty();
  }));

  terminal.submit("Please [run touch denied]");
  ASSERT_TRUE(asked()) << terminal.screen();
  answer({Answer::Deny{}});
  ASSERT_TRUE(idle()) << terminal.screen();
  EXPECT_FALSE(fs::exists(folder / "redirected") || fs::exists(folder / "denied"));
}

TEST_F(RealClaudePermissions, QuestionsAreAnswered) {
  Terminal terminal(world, folder, world.claude());
  ASSERT_TRUE(idle()) << terminal.screen();
  terminal.submit(
      R"([use AskUserQuestion {"questions":[{"question":"Which one?","header":"One","multiSelect":false,)"
      R"("options":[{"label":"Left","description":"l"},{"label":"Right","description":"r"}]},)"
      R"({"question":"Which colours?","header":"Many","multiSelect":true,)"
      R"("options":[{"label":"Red","description":"r"},{"label":"Blue","description":"b"}]}]}])");
  ASSERT_TRUE(asked()) << terminal.screen();
  EXPECT_EQ(server.requests()->front().questions.size(), 2u);
  answer({Answer::Answers{{{"Which one?", {"Right"}}, {"Which colours?", {"Red", "Blue"}}}}});
  EXPECT_TRUE(eventually([&] {
    return told(R"(\"Which one?\"=\"Right\", \"Which colours?\"=\"Red, Blue\")");
  })) << terminal.screen();
  EXPECT_TRUE(idle()) << terminal.screen();
}

}  // namespace
}  // namespace ostrel

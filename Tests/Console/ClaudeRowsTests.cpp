// What `ostrelctl serve` says of Claude Code outside its plain session, told by real processes and session
// files.
#include <gtest/gtest.h>

#include "Peers/Serving.h"
#include "Support/ClaudeStandIn.h"
#include "Support/HookHome.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

constexpr char kConversation[] = "11111111-2222-4333-8444-555555555555";
constexpr char kOther[] = "aaaaaaaa-bbbb-4ccc-8ddd-eeeeeeeeeeee";

class ClaudeRows : public testing::Test {
 protected:
  // The rows (of agents of this test: others may run on the machine) as "<state> <light>", in order, once
  // they are these; null where they don't become so.
  Json rows(const std::vector<std::string>& wanted) {
    std::vector<std::string> seen;
    const Json event = serve_.until(
        "agents",
        [&](const Json& now) {
          seen.clear();
          own_ = Json::array();
          for (const Json& agent : now["agents"]) {
            if (!agent["context"].get<std::string>().starts_with(hooks_.home.path().string())) continue;
            own_.push_back(agent);
            seen.push_back(agent["state"].get<std::string>() + " " + agent["light"].get<std::string>());
          }
          std::ranges::sort(seen);
          return seen == wanted;
        },
        20s);
    EXPECT_EQ(seen, wanted);
    return event.is_null() ? event : own_;
  }
  Json requests(std::size_t count) {
    return serve_.until("permissions", [&](const Json& event) { return event["requests"].size() == count; });
  }
  std::unique_ptr<ChildProcess> asking(const char* session) {
    return hooks_.ask({{"session_id", session}, {"tool_name", "Bash"}, {"tool_input", {{"command", "ls"}}}});
  }

  Json own_;
  HookHome hooks_;
  Serving serve_{OSTREL_BIN_DIR "/ostrelctl", hooks_.variables, hooks_.home.path()};
};

TEST_F(ClaudeRows, AConversationInTwoTerminalsIsOneRowThatWaitsWhereverItAsks) {
  ClaudeStandIn first(hooks_.home.path(), "first", kConversation);
  ClaudeStandIn second(hooks_.home.path(), "second", kConversation);
  first.says("idle");
  second.says("idle");
  const Json row = rows({"idle done"})[0];
  ClaudeStandIn& hidden = row["pid"] == first.pid() ? second : first;
  hidden.says("waiting");
  const auto hook = asking(kConversation);
  EXPECT_EQ(requests(1)["requests"][0]["agent"], row["id"]);
  rows({"blocked needsYou"});
  // Long enough after the request that states are believed, a scan comes. What it shows says that the request
  // has been looked at.
  std::this_thread::sleep_for(2500ms);
  ClaudeStandIn other(hooks_.home.path(), "other", kOther);
  other.says("busy");
  rows({"blocked needsYou", "working working"});
  EXPECT_TRUE(requests(1).is_object()) << "the prompt is open";
  hidden.says("idle");  // answered in its terminal
  EXPECT_TRUE(requests(0).is_object());
  rows({"idle done", "working working"});
  EXPECT_EQ(hook->finish().output, "");
}

TEST_F(ClaudeRows, WhoeverOnlyLooksLeavesItDone) {
  ClaudeStandIn claude(hooks_.home.path(), "claude-1", kConversation);
  claude.says("idle");
  const Json id = rows({"idle done"})[0]["id"];
  ASSERT_TRUE(serve_.perform({{"op", "select"}, {"agent", id}, {"seen", false}})["ok"]);
  ClaudeStandIn other(hooks_.home.path(), "other", kOther);
  other.says("busy");
  rows({"idle done", "working working"});
  ASSERT_TRUE(serve_.perform({{"op", "select"}, {"agent", id}})["ok"]);
  rows({"idle idle", "working working"});
}

TEST_F(ClaudeRows, ARunThatOnlyPrintsWorksWhileItLives) {
  auto print = std::make_unique<ClaudeStandIn>(hooks_.home.path(), "print", kConversation);
  print->file()["entrypoint"] = "sdk-cli";
  print->says("");
  rows({"working working"});
  print.reset();
  rows({});
}

// A form in the terminal: the session's file says that it works.
TEST_F(ClaudeRows, AFormThatNobodyHasTouchedNeedsThePerson) {
  ClaudeStandIn session(hooks_.home.path(), "session", kConversation);
  session.says("busy");
  rows({"working working"});
  const auto tells = [&](const char* type) {
    const auto hook = hooks_.ask(
        {{"session_id", kConversation}, {"hook_event_name", "Notification"}, {"notification_type", type}});
    EXPECT_EQ(hook->finish().output, "");
  };
  tells("elicitation_dialog");
  rows({"blocked needsYou"});
  tells("elicitation_response");
  rows({"working working"});
  tells("elicitation_dialog");
  rows({"blocked needsYou"});
  session.says("idle");  // broken off: nobody tells of the form
  rows({"idle done"});
}

// A session that tells no conversation is tied to one by hand, and untied again.
TEST_F(ClaudeRows, ALinkIsSetAndTakenBack) {
  const auto file = hooks_.home.write(
      std::string("claude/projects/chosen/") + kOther + ".jsonl",
      R"({"type":"user","uuid":"1","sessionId":"x","message":{"role":"user","content":"Chosen words"}})"
      "\n");
  ClaudeStandIn session(hooks_.home.path(), "session", kConversation);  // without a session file
  const Json row = rows({"unknown idle"})[0];
  EXPECT_TRUE(serve_.perform({{"op", "select"}, {"agent", row["id"]}})["ok"]);
  const auto shows = [&](const std::string& words) {
    return serve_
        .until(
            "transcript",
            [&](const Json& event) {
              return event["agent"] == row["id"] && event["loading"] == false &&
                     (words.empty() ? event["messages"].empty() : event["messages"].dump().contains(words));
            })
        .is_object();
  };
  EXPECT_TRUE(shows(""));
  EXPECT_TRUE(serve_.perform({{"op", "link"}, {"agent", row["id"]}, {"path", file.string()}})["ok"]);
  EXPECT_TRUE(shows("Chosen words"));
  EXPECT_TRUE(serve_.perform({{"op", "link"}, {"agent", row["id"]}, {"path", nullptr}})["ok"]);
  EXPECT_TRUE(shows(""));
}

// In a sandbox Claude Code knows itself by another pid than we do, and names its session file by that.
TEST_F(ClaudeRows, ASessionInAnotherPidNamespaceIsKnown) {
  if (runCommand({"unshare", "-p", "-f", "true"}, hooks_.variables).status != 0)
    GTEST_SKIP() << "no PID namespaces can be made here";
  ClaudeStandIn inside(hooks_.home.path(), "inside", kConversation, "unshare -p -f --kill-child");
  ASSERT_LT(inside.pid(), 10);
  inside.says("waiting");
  const Json row = rows({"blocked needsYou"})[0];
  EXPECT_NE(row["pid"], inside.pid());
  const auto hook = asking(kConversation);
  EXPECT_EQ(requests(1)["requests"][0]["agent"], row["id"]);
  // The file of another process that has the same pid in another sandbox.
  inside.file()["procStart"] = "12345";
  inside.says("waiting");
  rows({"unknown idle"});
}

}  // namespace
}  // namespace ostrel

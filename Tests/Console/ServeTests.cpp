// `ostrelctl serve` over a Herdr in processes of its own.
#include <gtest/gtest.h>

#include "Peers/Herdr/HerdrStandIn.h"
#include "Peers/Serving.h"
#include "Runtime/Files.h"
#include "Support/TemporaryFolder.h"

namespace ostrel {
namespace {

// OSTREL_SERVE_ROUNDS asks for more than a test of everything has time for.
int rounds() {
  const char* const asked = std::getenv("OSTREL_SERVE_ROUNDS");
  return asked ? std::atoi(asked) : 5;
}

TEST(Serve, ShowsAPaneTakesOperationsAndAnswersWhatItCannotDo) {
  HerdrStandIn herdr;
  herdr.start("one");
  const auto pane = herdr.open("one", {"sh", "-c", "echo on the screen; exec cat"});
  herdr.report("one", pane, {.agent = "gemini", .status = "idle"});
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", herdr.environment(), herdr.home());
  const auto shows = [&](const char* event, const std::string& member, const std::string& text) {
    return !serve
                .until(
                    event,
                    [&](const Json& shown) { return shown[member].dump().find(text) != std::string::npos; },
                    std::chrono::seconds(60))
                .is_null();
  };
  EXPECT_TRUE(serve.perform({{"op", "connect"}})["ok"]);
  ASSERT_TRUE(shows("agents", "herdr", "Connected · 1 sessions"));
  const auto id = "3:one" + pane.id;

  ASSERT_TRUE(serve.perform({{"op", "select"}, {"agent", id}})["ok"]);
  EXPECT_TRUE(shows("output", "text", "\"on the screen"));
  EXPECT_TRUE(shows("transcript", "notice",
                    "Use the interactive terminal for this provider’s full conversation and controls."));
  herdr.run("one", {"pane", "send-text", pane.id, "typed"});
  EXPECT_TRUE(shows("output", "text", "typed"));
  ASSERT_TRUE(serve.perform({{"op", "rename"}, {"agent", id}, {"title", " My own "}})["ok"]);
  EXPECT_TRUE(shows("agents", "agents", "My own"));
  EXPECT_TRUE(shows("selection", "label", "\"Idle\""));
  herdr.setFault({{"on", "pane.read"}, {"answer", Json::object({{"result", Json::object()}})}});
  EXPECT_TRUE(shows("output", "error", "This Herdr version has an unsupported output format."));
  EXPECT_TRUE(shows("output", "text", "typed")) << "what was read stays";

  const std::pair<Json, const char*> refused[] = {
      {{{"op", "select"}, {"agent", "nobody"}}, "This agent is not there any more."},
      {{{"op", "answer"}, {"request", "x"}, {"decision", "allow"}}, "This request has ended."},
      {{{"op", "answer"}, {"request", "x"}, {"decision", "perhaps"}},
       "\"perhaps\" is no decision: \"allow\", \"always\" or \"deny\"."},
      {{{"op", "dance"}}, "\"dance\" is no operation."},
      {Json::object(), "\"op\" is missing."},
  };
  for (const auto& [operation, message] : refused) EXPECT_EQ(serve.perform(operation)["message"], message);
  serve.send("no object");
  EXPECT_EQ(serve.until("reply", [](const Json& reply) { return !reply.contains("id"); })["message"],
            "The line is no JSON object.");

  herdr.stop("one");
  EXPECT_TRUE(shows("selection", "agent", "null"));
  const auto end = serve.finish();
  EXPECT_EQ(end.status, 0);
  EXPECT_EQ(end.errors, "");
}

// Killed while prompts wait, again and again: no hook hangs or says a word, and the next start is not kept
// from its socket.
TEST(Serve, LeavesNothingBehindThatHinders) {
  const TemporaryFolder home;
  const ChildProcess::Variables variables = {{"HOME", home.path().string()},
                                             {"PATH", "/usr/bin:/bin"},
                                             {"CLAUDE_CONFIG_DIR", (home.path() / "claude").string()}};
  home.write("claude/settings.json", "{\n  \"model\": \"x\"\n}\n");
  for (int round = 0; round < rounds(); ++round) {
    Serving serve(OSTREL_BIN_DIR "/ostrelctl", variables, home.path());
    ASSERT_TRUE(serve.until("permissions", [](const Json&) { return true; }).is_object());
    std::vector<std::unique_ptr<ChildProcess>> hooks;
    for (int i = 0; i < 3; ++i) {
      const std::string line = R"({"session_id":"s","tool_name":"Bash","tool_input":{"command":"c"}})";
      hooks.push_back(std::make_unique<ChildProcess>(
          std::vector<std::string>{"/bin/sh", "-c",
                                   "echo '" + line + "' | '" OSTREL_BIN_DIR "/Ostrel' --permission-hook"},
          variables));
    }
    ASSERT_TRUE(serve.until("permissions", [](const Json& event) { return event["requests"].size() == 3; })
                    .is_object())
        << "round " << round;
    serve.process().signal(SIGKILL);
    for (const auto& hook : hooks) {
      const auto end = hook->finish();
      EXPECT_EQ(end.status, 0);
      EXPECT_EQ(end.output + end.errors, "");
    }
  }
  const auto settings = files::read(home.path() / "claude/settings.json").value_or("");
  EXPECT_TRUE(settings.starts_with("{\n  \"model\": \"x\",\n")) << settings;
  EXPECT_EQ(files::read(home.path() / "claude/settings.json.ostrel-backup"), "{\n  \"model\": \"x\"\n}\n");
}

}  // namespace
}  // namespace ostrel

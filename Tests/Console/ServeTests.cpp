// `ostrelctl serve` over a Herdr in processes of its own.
#include <gtest/gtest.h>

#include "Peers/Herdr/HerdrStandIn.h"
#include "Peers/Serving.h"
#include "Runtime/Files.h"
#include "Support/Eventually.h"
#include "Support/HookHome.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;

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

// What a script may answer is what a card offers, and what is refused is refused with words and leaves the
// request open.
TEST(Serve, TakesNoAnswerThatTheCardDoesNotOffer) {
  HookHome hooks;
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", hooks.variables, hooks.home.path());
  const auto open = [&](std::size_t count) {
    return serve.until("permissions", [&](const Json& event) { return event["requests"].size() == count; });
  };
  ASSERT_TRUE(open(0).is_object());
  const auto command =
      hooks.ask({{"session_id", "s"}, {"tool_name", "Bash"}, {"tool_input", {{"command", "ls"}}}});
  const Json bash = open(1)["requests"][0];
  ASSERT_TRUE(bash.is_object());
  EXPECT_EQ(
      bash["choices"].dump(),
      R"([{"id":"allow","takesAnswers":false,"title":"Yes"},{"id":"deny","takesAnswers":false,"title":"No"}])");
  const Json options = {{{"label", "A"}}, {{"label", "B"}}};
  const auto asking =
      hooks.ask({{"session_id", "s"},
                 {"tool_name", "AskUserQuestion"},
                 {"tool_input",
                  {{"questions",
                    {{{"question", "One?"}, {"options", options}},
                     {{"question", "Many?"}, {"multiSelect", true}, {"options", options}}}}}}});
  const Json question = open(2)["requests"][1];
  ASSERT_TRUE(question.is_object());

  const auto refused = [&](const Json& request, Json answer) {
    answer["op"] = "answer";
    answer["request"] = request["id"];
    const Json reply = serve.perform(answer);
    return reply["ok"].get<bool>() ? std::string("taken") : reply["message"].get<std::string>();
  };
  const std::pair<Json, const char*> ofACommand[] = {
      {{{"done", true}}, "This choice is not on offer."},
      {{{"skip", true}}, "This choice is not on offer."},
      {{{"decision", "always"}}, "This choice is not on offer."},
      {{{"answers", {{"ls", "yes"}}}}, "This request takes no answers."},
      {{{"decision", "allow"}, {"choice", "deny"}},
       "An answer is one of \"choice\", \"decision\", \"skip\" and \"done\"."},
      {Json::object(), "\"choice\", \"decision\", \"answers\", \"skip\" or \"done\" is missing."}};
  for (const auto& [answer, words] : ofACommand) EXPECT_EQ(refused(bash, answer), words) << answer;
  const std::pair<Json, const char*> ofAQuestion[] = {
      {{{"decision", "allow"}}, "This choice is not on offer."},
      {{{"answers", Json::object()}}, "Answer each question before submitting."},
      {{{"answers", {{"One?", "A"}}}}, "Answer each question before submitting."},
      {{{"answers", {{"One?", "A"}, {"Many?", "B"}, {"Other?", "A"}}}},
       "\"Other?\" is not one of the questions."}};
  for (const auto& [answer, words] : ofAQuestion) EXPECT_EQ(refused(question, answer), words) << answer;

  EXPECT_EQ(refused(bash, {{"decision", "allow"}}), "taken");
  EXPECT_EQ(refused(bash, {{"decision", "allow"}}), "This request has ended.");
  EXPECT_EQ(refused(question, {{"answers", {{"One?", "A"}, {"Many?", {"A", "B"}}}}}), "taken");
  EXPECT_EQ(json::parse(command->finish().output).value_or(Json())["hookSpecificOutput"]["decision"],
            Json({{"behavior", "allow"}}));
  const auto redirected =
      hooks.ask({{"session_id", "s"}, {"tool_name", "Bash"}, {"tool_input", {{"command", "grep"}}}});
  const Json grep = serve.until("permissions", [](const Json& event) {
    return event["requests"].size() == 1 && event["requests"][0]["detail"] == "grep";
  });
  ASSERT_TRUE(grep.is_object());
  EXPECT_EQ(refused(grep["requests"][0], {{"decision", "deny"}, {"message", "use rg"}}), "taken");
  EXPECT_EQ(json::parse(redirected->finish().output).value_or(Json())["hookSpecificOutput"]["decision"],
            Json({{"behavior", "deny"}, {"message", "use rg"}, {"interrupt", false}}));
  EXPECT_EQ(json::parse(asking->finish().output)
                .value_or(Json())["hookSpecificOutput"]["decision"]["updatedInput"]["answers"],
            Json({{"One?", "A"}, {"Many?", "A, B"}}));
}

// What did not change is not said again.
TEST(Serve, AnEventComesWhereItDiffers) {
  HookHome hooks;
  Serving serve(OSTREL_BIN_DIR "/ostrelctl", hooks.variables, hooks.home.path());
  ASSERT_TRUE(serve.until("codex", [](const Json&) { return true; }).is_object()) << "the first of all";
  std::vector<std::string> repeated;
  for (int round = 0; round < 3; ++round) {
    serve.send({{"op", "dance"}});
    for (std::string event; event != "reply";) {
      const auto line = serve.process().line(std::chrono::seconds(30));
      ASSERT_TRUE(line);
      event = json::string(json::parse(*line).value_or(Json()), "event").value_or("");
      if (event == "integrations" || event == "output") repeated.push_back(event);
    }
  }
  EXPECT_EQ(repeated, std::vector<std::string>());
}

// A front end that has stopped reading keeps neither prompts from their hooks nor the program from its end.
TEST(Serve, EndsThoughNobodyReadsItsOutput) {
  HookHome hooks;
  const UniqueFd input = [&] {
    ::mkfifo((hooks.home.path() / "in").c_str(), 0600);
    return UniqueFd(::open((hooks.home.path() / "in").c_str(), O_RDWR | O_CLOEXEC));
  }();
  ChildProcess serve({"/bin/sh", "-c", "exec '" OSTREL_BIN_DIR "/ostrelctl' serve < \"$0\"",
                      (hooks.home.path() / "in").string()},
                     hooks.variables);
  ASSERT_TRUE(serve.line(std::chrono::seconds(30)));  // it listens; nothing is read any more
  const std::string command(100'000, 'x');            // more than a pipe holds
  std::vector<std::unique_ptr<ChildProcess>> asking;
  for (int i = 0; i < 4; ++i) {
    asking.push_back(
        hooks.ask({{"session_id", "s"}, {"tool_name", "Bash"}, {"tool_input", {{"command", command}}}}));
  }
  const auto connections = [&] {
    int sockets = 0;
    std::error_code error;
    for (const auto& fd : fs::directory_iterator("/proc/" + std::to_string(serve.pid()) + "/fd", error))
      sockets += fs::read_symlink(fd, error).string().starts_with("socket:") ? 1 : 0;
    return sockets;
  };
  ASSERT_TRUE(eventually([&] { return connections() >= 5; })) << "the four hooks and where they find us";
  std::this_thread::sleep_for(std::chrono::milliseconds(300));  // what they ask has filled the pipe by then
  serve.signal(SIGTERM);
  EXPECT_TRUE(
      eventually([&] { return !fs::exists(hooks.home.path() / ".local/share/ostrel/permissions.sock"); }));
  const auto end = [&] { return files::read("/proc/" + std::to_string(serve.pid()) + "/stat").value_or(""); };
  EXPECT_TRUE(eventually([&] { return end().find(") Z ") != std::string::npos; }))
      << "it has ended, with its output still unread";
  for (const auto& hook : asking) EXPECT_EQ(hook->finish().output, "");
}

// Killed while prompts wait, again and again: no hook hangs or says a word, and the next start is not kept
// from its socket.
TEST(Serve, LeavesNothingBehindThatHinders) {
  HookHome world;
  const TemporaryFolder& home = world.home;
  home.write("claude/settings.json", "{\n  \"model\": \"x\"\n}\n");
  for (int round = 0; round < rounds(); ++round) {
    Serving serve(OSTREL_BIN_DIR "/ostrelctl", world.variables, home.path());
    ASSERT_TRUE(serve.until("permissions", [](const Json&) { return true; }).is_object());
    std::vector<std::unique_ptr<ChildProcess>> hooks;
    for (int i = 0; i < 3; ++i) {
      hooks.push_back(
          world.ask({{"session_id", "s"}, {"tool_name", "Bash"}, {"tool_input", {{"command", "c"}}}}));
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

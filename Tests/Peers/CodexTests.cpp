// The real Codex app server: what its threads look like from here, and what becomes of our answers.
#include <csignal>
#include <cstdlib>

#include <gtest/gtest.h>

#include "Codex/CodexAnswers.h"
#include "Codex/CodexCardModel.h"
#include "Codex/CodexLive.h"
#include "Codex/CodexRequestController.h"
#include "PeerWorld.h"
#include "Serving.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using CodexLocalServer::Connection;

// Far more than anything takes here, on any machine.
constexpr Duration kPatience = 90s;
constexpr CodexLocalServer::Limits kLimits{.call = kPatience, .silence = kPatience};

// The server, and a client beside ours that starts conversations and says things in them.
class RealCodexServer : public testing::Test {
 protected:
  RealCodexServer() : folder_(world_.project("p")) { start(); }

  // The native program: the one on the PATH is a launcher, whose end would not end it.
  static std::string program() {
    const fs::path package =
        fs::path(std::getenv("OSTREL_PEERS")) / "node_modules/@openai/codex-linux-x64/vendor";
    for (const auto& entry : fs::recursive_directory_iterator(package)) {
      if (entry.path().filename() == "codex" && entry.is_regular_file()) return entry.path();
    }
    throw std::runtime_error("no Codex");
  }
  void start() {
    const std::string line = "exec " + program() + " app-server --listen unix:// >/dev/null 2>&1";
    server_ =
        std::make_unique<ChildProcess>(std::vector<std::string>{"/bin/sh", "-c", line}, world_.variables());
    const auto connects = [this] {
      try {
        other_ = std::make_unique<Connection>(socket(), std::stop_token(), kLimits);
      } catch (const Failure&) {
      }
      return other_ != nullptr;
    };
    ASSERT_TRUE(eventually(connects, 90s));
  }
  void kill() {
    server_->signal(SIGKILL);
    server_->finish();
    other_.reset();
  }

  std::string socket() const {
    return (world_.home() / ".codex/app-server-control/app-server-control.sock").string();
  }
  std::string newThread() {
    return other_->call("thread/start", {{"cwd", folder_.string()}})["thread"]["id"].get<std::string>();
  }
  void say(const std::string& thread, const std::string& text) {
    other_->call("turn/start", {{"threadId", thread}, {"input", {{{"type", "text"}, {"text", text}}}}});
  }
  // The thread as our list shows it: "state|title".
  std::string shown(const std::string& thread) {
    try {
      for (const HerdrAgent& agent : CodexLive::list(socket())) {
        if (agent.paneID == thread && agent.context == folder_)
          return std::string(stateName(agent.state)) + "|" + agent.title;
      }
    } catch (const Failure& slow) {
      return slow.message();
    }
    return "(none)";
  }
  testing::AssertionResult becomes(const std::string& thread, const std::string& wanted) {
    if (eventually([&] { return shown(thread).starts_with(wanted); }, 90s))
      return testing::AssertionSuccess();
    return testing::AssertionFailure() << "wanted " << wanted << ", now " << shown(thread);
  }
  std::string history(const std::string& thread) {
    std::string all;
    for (const auto& message : CodexLocalServer::read(socket(), thread).messages)
      all += message.role + ": " + message.text.substr(0, message.text.find(" · ")) + "\n";
    return all;
  }

  PeerWorld world_;
  fs::path folder_;
  std::unique_ptr<ChildProcess> server_;
  std::unique_ptr<Connection> other_;
};

TEST_F(RealCodexServer, ThreadsAreListedReadAndGivenMessages) {
  const std::string thread = newThread();
  const std::string plain = "Codex · p";
  EXPECT_TRUE(becomes(thread, "idle|" + plain));
  say(thread, "Please wait [hold]");
  EXPECT_TRUE(becomes(thread, "working|" + plain));
  other_->call("thread/name/set", {{"threadId", thread}, {"name", " A name "}});
  EXPECT_TRUE(becomes(thread, "working|A name"));
  world_.model().release();
  EXPECT_TRUE(becomes(thread, "idle|A name"));
  EXPECT_EQ(history(thread), "user: Please wait [hold]\nassistant: Understood.\n");

  const auto variables = world_.variables();
  const CodexLive::QueueTool tool{socket(), [] { return fs::path(program()); }, variables};
  CodexLive::queue(tool, thread, "And one more");
  EXPECT_TRUE(eventually(
      [&] {
        return history(thread) ==
               "user: Please wait [hold]\nassistant: Understood.\nuser: And one more\nassistant: "
               "Understood.\n";
      },
      90s))
      << history(thread);
}

TEST_F(RealCodexServer, RequestsAreAnsweredHereOrElsewhereAndComeBackWithTheServer) {
  VirtualLoop loop;
  CodexRequestController controller(loop, {.limits = kLimits});
  controller.start(socket());
  const std::string thread = newThread();
  controller.watch({thread});
  const auto asked = [&] {
    return loop.waitUntil([&] { return !controller.requests()->empty(); }, kPatience);
  };
  const auto over = [&] { return loop.waitUntil([&] { return controller.requests()->empty(); }, kPatience); };
  const auto quiet = [&] { return becomes(thread, "idle|"); };

  // It can't be joined before its first turn; what it asks then is sent to us once we are.
  say(thread, "Make it [run touch accepted]");
  ASSERT_TRUE(asked()) << controller.error()->value_or("");
  EXPECT_TRUE(becomes(thread, "blocked|"));
  CodexRequest request = controller.requests()->front();
  EXPECT_EQ(request.title(), "Allow this command?");
  const auto card = CodexCard::of(request, std::nullopt);
  EXPECT_NE(card.command.value_or("").find("touch accepted"), std::string::npos);
  EXPECT_EQ(card.folder, folder_);
  ASSERT_EQ(request.choices().front().title, "Allow once");
  EXPECT_FALSE(fs::exists(folder_ / "accepted"));
  controller.answer(request, request.choices().front().result);
  ASSERT_TRUE(over());
  ASSERT_TRUE(quiet());
  EXPECT_TRUE(fs::exists(folder_ / "accepted"));

  say(thread, "Make it [run touch denied]");
  ASSERT_TRUE(asked());
  controller.answer(controller.requests()->front(), R"({"decision":"decline"})");
  ASSERT_TRUE(over());
  ASSERT_TRUE(quiet());
  EXPECT_FALSE(fs::exists(folder_ / "denied"));

  say(thread, "Make it [run touch elsewhere]");
  ASSERT_TRUE(asked());
  other_->frame(R"({"id":)" + controller.requests()->front().wireID + R"(,"result":{"decision":"accept"}})");
  ASSERT_TRUE(over());
  ASSERT_TRUE(quiet());
  EXPECT_TRUE(fs::exists(folder_ / "elsewhere"));

  // The request lacks the diff: it comes with the item, or to who joins later with the joining.
  say(thread, "Make it [patch " + (world_.home() / "patched").string() + "]");
  ASSERT_TRUE(asked());
  {
    CodexRequestController late(loop, {.limits = kLimits});
    late.start(socket());
    late.watch({thread});
    for (CodexRequestController* const each : {&controller, &late}) {
      ASSERT_TRUE(
          loop.waitUntil([&] { return !each->requests()->empty() && !each->details().empty(); }, kPatience));
      request = each->requests()->front();
      EXPECT_EQ(request.title(), "Allow these file changes?");
      const std::string key = CodexCard::itemKey(request).value_or("");
      ASSERT_TRUE(loop.waitUntil([&] { return each->details().contains(key); }, kPatience));
      const auto changes = CodexCard::of(request, each->details().at(key)).changes;
      ASSERT_EQ(changes.size(), 1u);
      EXPECT_EQ(changes[0], (CodexCard::Change{(world_.home() / "patched").string(), "add", "patched in\n"}));
    }
    EXPECT_FALSE(fs::exists(world_.home() / "patched"));
    late.answer(request, request.choices().front().result);
    ASSERT_TRUE(over());
    ASSERT_TRUE(quiet());
    EXPECT_TRUE(fs::exists(world_.home() / "patched"));
  }

  say(thread, "Make it [run touch lost]");
  ASSERT_TRUE(asked());
  kill();
  ASSERT_TRUE(over());
  EXPECT_TRUE(controller.connectedThreads()->empty());
  ASSERT_TRUE(loop.waitUntil([&] { return controller.error()->has_value(); }, kPatience));
  EXPECT_TRUE((*controller.error())->starts_with("Codex controls reconnecting: ")) << **controller.error();
  start();
  other_->call("thread/resume", {{"threadId", thread}, {"excludeTurns", true}});
  ASSERT_TRUE(loop.waitUntil([&] { return controller.connectedThreads()->contains(thread); }, kPatience));
  EXPECT_FALSE(controller.error()->has_value());
}

// All that it asks beside leave to run and to write, and what the model is told of the answer.
TEST_F(RealCodexServer, QuestionsAccessFormsAndToolsAreAnsweredByTheirCards) {
  VirtualLoop loop;
  CodexRequestController controller(loop, {.limits = kLimits});
  controller.start(socket());
  const std::string thread = newThread();
  controller.watch({thread});
  std::string last;  // the same request may be there for a moment after its answer
  const auto asked = [&](const char* title) {
    EXPECT_TRUE(loop.waitUntil(
        [&] { return !controller.requests()->empty() && controller.requests()->front().id() != last; },
        kPatience))
        << title << controller.error()->value_or("");
    if (controller.requests()->empty()) throw std::runtime_error("no request");
    const CodexRequest& request = controller.requests()->front();
    CodexCardModel card(request, CodexCard::of(request, {}));
    last = card.request().id();
    EXPECT_EQ(card.card().title, title);
    return card;
  };
  const auto answer = [&](const CodexCardModel& card, const RequestAnswer& given, bool linkOpened = false) {
    const CodexCard shown = CodexCard::of(card.request(), {}, linkOpened);
    EXPECT_TRUE(
        controller.answer(card.request(), codexAnswers::result(card.request(), shown, linkOpened, given)));
  };
  const auto choose = [&](const CodexCardModel& card, const char* title) {
    for (const auto& choice : card.card().choices) {
      if (choice.title == title) answer(card, {.choice = choice.id});
    }
  };
  const auto use = [&](const std::string& tool, const Json& input) {
    say(thread, "[use " + tool + " " + json::dump(input) + "]");
  };
  const auto told = [&](const std::string& words) {
    return becomes(thread, "idle|") && eventually([&] { return world_.model().wasTold(words); });
  };

  use("request_user_input",
      {{"questions",
        {{{"id", "side"},
          {"header", "Side"},
          {"question", "Which?"},
          {"options",
           {{{"label", "Left"}, {"description", "l"}}, {{"label", "Right"}, {"description", "r"}}}}}}}});
  auto card = asked("Your answer is needed");
  ASSERT_EQ(card.card().questions.size(), 1u);
  EXPECT_TRUE(card.card().skippable);
  card.choose(0, 1);
  answer(card, card.submit());
  EXPECT_TRUE(told(R"({"answers":{"side":{"answers":["Right"]}}})"));

  const std::string outside = (world_.home() / "outside").string();
  const Json wish{{"reason", "To write"}, {"permissions", {{"file_system", {{"write", {outside}}}}}}};
  use("request_permissions", wish);
  card = asked("Allow additional access?");
  EXPECT_EQ(card.card().words, std::vector<std::string>{"To write"});
  EXPECT_NE(card.card().access.value_or("").find(outside), std::string::npos);
  choose(card, "Deny");
  EXPECT_TRUE(told(R"("permissions":{"network":null,"file_system":null})"));
  EXPECT_FALSE(world_.model().wasTold(outside));
  use("request_permissions", wish);
  choose(asked("Allow additional access?"), "Allow for this turn");
  EXPECT_TRUE(told(outside));

  use("mcp__kit.echo", {{"text", "first"}});
  card = asked("kit");
  EXPECT_EQ(card.card().tool, (CodexCard::Tool{"echo", "{\n  \"text\": \"first\"\n}"}));
  choose(card, "Decline");
  EXPECT_TRUE(told("rejected"));
  use("mcp__kit.echo", {{"text", "second"}});
  card = asked("kit");
  answer(card, card.submit());
  EXPECT_TRUE(told(R"(echo: {"text":"second"})"));
  EXPECT_FALSE(world_.model().wasTold(R"(echo: {"text":"first"})"));

  use("mcp__kit.ask", Json::object());
  card = asked("kit");
  answer(card, card.submit());
  card = asked("kit");
  EXPECT_THROW(answer(card, card.submit()), Failure);
  card.type("city", "Bonn");
  card.type("count", "2");
  answer(card, card.submit());
  EXPECT_TRUE(told(R"("content":{"city":"Bonn","count":2})"));

  use("mcp__kit.link", Json::object());
  card = asked("kit");
  answer(card, card.submit());
  card = asked("kit");
  EXPECT_EQ(card.card().link, "https://example.org/step");
  answer(card, {.choice = "done"}, true);
  EXPECT_TRUE(told(R"(linked: {"action":"accept")"));
}

// What a command's list leaves out is taken all the same, with and without more access.
TEST_F(RealCodexServer, TakesDecisionsThatItDoesNotList) {
  VirtualLoop loop;
  CodexRequestController controller(loop, {.limits = kLimits});
  controller.start(socket());
  const std::string thread = newThread();
  controller.watch({thread});
  const auto ask = [&](const std::string& tool, const Json& input) {
    say(thread, "[use " + tool + " " + json::dump(input) + "]");
  };
  const auto press = [&](const char* title) {
    EXPECT_TRUE(loop.waitUntil([&] { return !controller.requests()->empty(); }, kPatience)) << title;
    if (controller.requests()->empty()) throw std::runtime_error("no request");
    const CodexRequest request = controller.requests()->front();
    const Json params = json::parse(request.payload).value_or(Json());
    for (const char* const unlisted : {"decline", "acceptForSession"})
      EXPECT_FALSE(json::dump(params["availableDecisions"]).contains(unlisted))
          << "listed now: " << request.payload;
    for (const auto& choice : request.choices()) {
      if (choice.title == title) controller.answer(request, choice.result);
    }
    EXPECT_TRUE(loop.waitUntil([&] { return controller.requests()->empty(); }, kPatience)) << title;
    return params;
  };
  const auto escalated = [](const std::string& command) {
    return Json{{"cmd", command}, {"sandbox_permissions", "require_escalated"}, {"justification", "A test"}};
  };
  const auto more = [&](const std::string& command) {
    return Json{{"cmd", command},
                {"sandbox_permissions", "with_additional_permissions"},
                {"additional_permissions", {{"file_system", {{"write", {world_.home().string()}}}}}},
                {"justification", "A test"}};
  };
  for (const auto& [name, input] :
       {std::pair("plain", escalated("touch plain")), std::pair("more", more("touch more"))}) {
    const fs::path made = folder_ / name;
    ask("exec_command", input);
    const Json params = press("Deny");
    EXPECT_EQ(params.contains("additionalPermissions") && !params["additionalPermissions"].is_null(),
              std::string(name) == "more")
        << params;
    EXPECT_TRUE(becomes(thread, "idle|"));
    EXPECT_FALSE(fs::exists(made)) << name;
    EXPECT_TRUE(world_.model().wasTold("rejected by user")) << name;

    ask("exec_command", input);
    press("Allow for this session");
    EXPECT_TRUE(becomes(thread, "idle|"));
    EXPECT_TRUE(eventually([&] { return fs::exists(made); })) << name;
    fs::remove(made);
    ask("exec_command", input);
    EXPECT_TRUE(eventually([&] { return fs::exists(made); })) << name << " was asked for again";
    EXPECT_TRUE(becomes(thread, "idle|"));
  }
}

// The same through the front end over standard input and output.
TEST_F(RealCodexServer, IsListedAndAnsweredThroughServe) {
  Serving serve(world_.ostrelctl(), world_.variables(), world_.home());
  const std::string thread = newThread();
  say(thread, "Make it [run touch served]");
  const auto asks = [](const Json& event) { return event["requests"].size() == 1; };
  const Json event = serve.until("codex", asks, 90s);
  ASSERT_TRUE(event.is_object());
  const Json& request = event["requests"][0];
  EXPECT_EQ(request["title"], "Allow this command?");
  EXPECT_EQ(request["thread"], thread);
  const Json listed = serve.until(
      "agents",
      [&](const Json& agents) {
        return agents["agents"].size() == 1 && agents["agents"][0]["light"] == "needsYou";
      },
      90s);
  ASSERT_TRUE(listed.is_object()) << "a thread that no terminal is linked to, and that waits";
  EXPECT_EQ(listed["agents"][0]["title"], "Codex · p");
  EXPECT_EQ(serve.perform({{"op", "answer"}, {"request", request["id"]}, {"choice", "x"}})["message"],
            "This choice is not on offer.");
  EXPECT_TRUE(serve.perform(
      {{"op", "answer"}, {"request", request["id"]}, {"choice", request["choices"][0]["id"]}})["ok"]);
  EXPECT_TRUE(
      serve.until("codex", [](const Json& codex) { return codex["requests"].empty(); }, 90s).is_object());
  EXPECT_TRUE(eventually([&] { return fs::exists(folder_ / "served"); }, 90s));
  ASSERT_TRUE(serve.perform({{"op", "select"}, {"agent", listed["agents"][0]["id"]}})["ok"]);
  EXPECT_TRUE(serve
                  .until(
                      "transcript",
                      [](const Json& shown) {
                        return shown["messages"].dump().find("[run touch served]") != std::string::npos;
                      },
                      90s)
                  .is_object());
}

}  // namespace
}  // namespace ostrel

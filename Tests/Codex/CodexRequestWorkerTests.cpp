#include <condition_variable>
#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Codex/CodexRequestController.h"
#include "CodexStandIn.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

std::string threadID(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }

Json asking(const Json& id, int thread, const std::string& turn = "t", const std::string& command = "ls") {
  return {{"id", id},
          {"method", "item/commandExecution/requestApproval"},
          {"params", {{"threadId", threadID(thread)}, {"turnId", turn}, {"command", command}}}};
}
Json resolved(const Json& id, int thread) {
  return {{"method", "serverRequest/resolved"},
          {"params", {{"threadId", threadID(thread)}, {"requestId", id}}}};
}
Json turnCompleted(int thread, const std::string& turn) {
  return {{"method", "turn/completed"},
          {"params", {{"threadId", threadID(thread)}, {"turn", {{"id", turn}}}}}};
}

// A controller whose worker is replaced by the bare book-keeping, with what lies between them in the test's
// hands: events and answers wait until they are delivered.
class Desk {
 public:
  Desk() {
    controller.start({[this](std::set<std::string> threads) { desired = std::move(threads); },
                      [this](CodexRequest request, std::string result) {
                        replies.emplace_back(std::move(request), std::move(result));
                      }});
    restart();
  }
  void restart() {
    replies.clear();
    const std::string epoch = "run" + std::to_string(++runs);
    desk = std::make_unique<CodexRequestDesk>(
        epoch, [this](CodexRequestEvent event) { events.push_back(std::move(event)); });
    events.emplace_back(codexevent::Reset{epoch, std::nullopt});
  }
  void join(int thread) {
    desk->joining(threadID(thread));
    desk->joined(threadID(thread));
  }
  // Tells the controller the first event that it has not heard, or all.
  void deliver() {
    const CodexRequestEvent event = std::move(events.front());
    events.erase(events.begin());
    controller.receive(event);
  }
  void deliverAll() {
    while (!events.empty()) deliver();
  }
  // Writes the first answer; the frame's text.
  std::optional<std::string> write() {
    const auto [request, result] = replies.front();
    replies.erase(replies.begin());
    const auto text = desk->answer(request, result, desired);
    if (text) events.emplace_back(codexevent::Sent{request.id()});
    return text;
  }

  VirtualLoop loop;
  CodexRequestController controller{loop};
  std::unique_ptr<CodexRequestDesk> desk;
  std::set<std::string> desired;
  std::vector<CodexRequestEvent> events;
  std::vector<std::pair<CodexRequest, std::string>> replies;
  int runs = 0;
};

TEST(CodexRequests, AppearAreAnsweredAndGo) {
  Desk test;
  test.controller.watch({threadID(1)});
  test.desk->event(asking(9, 1).dump());  // neither joined nor being joined
  test.desk->joining(threadID(1));
  test.desk->event(asking(7, 1).dump());
  test.desk->joined(threadID(1));
  test.desk->event(asking(7, 1).dump());  // sent again
  test.desk->event(asking("7", 1).dump());
  test.desk->event(R"({"id":123456789012345678901,"method":"execCommandApproval","params":{"threadId":")" +
                   threadID(1) + "\"}}");
  test.deliverAll();
  auto& controller = test.controller;
  ASSERT_EQ(controller.requests()->size(), 3u);
  EXPECT_EQ(controller.status(threadID(1)), "Connected · reply and review requests here");
  EXPECT_EQ(controller.status(threadID(2)), "Connecting conversation controls…");

  const auto requests = *controller.requests();
  for (const auto& request : requests) controller.answer(request, R"({"decision":"accept"})");
  controller.answer(requests[0], R"({"decision":"cancel"})");  // one answer per request
  ASSERT_EQ(test.replies.size(), 3u);
  test.replies.push_back(test.replies[0]);
  EXPECT_EQ(test.write(), R"({"id":7,"result":{"decision":"accept"}})");
  EXPECT_EQ(test.write(), R"({"id":"7","result":{"decision":"accept"}})");
  EXPECT_EQ(test.write(), R"({"id":123456789012345678901,"result":{"decision":"accept"}})");
  EXPECT_EQ(test.write(), std::nullopt);  // twice in one batch
  test.deliverAll();
  EXPECT_EQ(controller.sent()->size(), 2u);
  EXPECT_EQ(controller.replyErrors()->at(requests[0].id()),
            "This request has changed or was already answered. Nothing was sent.");

  test.desk->event(resolved("7", 2).dump());  // of another thread
  test.desk->event(resolved(7, 1).dump());
  test.desk->event(R"({"method":"serverRequest/resolved","params":{"requestId":123456789012345678901,)"
                   R"("threadId":")" +
                   threadID(1) + "\"}}");
  test.deliverAll();
  ASSERT_EQ(controller.requests()->size(), 1u);
  EXPECT_EQ(controller.requests()->front().wireID, "\"7\"");
  EXPECT_TRUE(controller.replyErrors()->empty());

  // What was shown is what is answered: changed under its id, it must be looked at again.
  test.desk->event(asking(8, 1, "t", "ls").dump());
  test.deliverAll();
  controller.answer(controller.requests()->back(), "{}");
  test.desk->event(asking(8, 1, "t", "rm").dump());
  EXPECT_EQ(test.write(), std::nullopt);
  test.deliverAll();
  EXPECT_EQ(controller.requests()->size(), 2u);
  EXPECT_NE(controller.requests()->back().payload.find("rm"), std::string::npos);

  test.desk->event(turnCompleted(1, "other").dump());
  test.deliverAll();
  EXPECT_EQ(controller.requests()->size(), 2u);
  test.desk->event(turnCompleted(1, "t").dump());
  test.deliverAll();
  EXPECT_TRUE(controller.requests()->empty());

  // Items, without what no card shows; gone with the thread.
  test.desk->event(Json{{"method", "item/started"},
                        {"params",
                         {{"threadId", threadID(1)},
                          {"item", {{"id", "i"}, {"type", "fileChange"}, {"aggregatedOutput", "x"}}}}}}
                       .dump());
  test.desk->event(asking(10, 1).dump());
  test.deliverAll();
  EXPECT_EQ(controller.details().at(threadID(1) + ":i"), R"({"id":"i","type":"fileChange"})");
  test.desk->leave(threadID(1));
  test.deliverAll();
  EXPECT_TRUE(controller.requests()->empty() && controller.details().empty());
  EXPECT_TRUE(controller.connectedThreads()->empty());
}

// Whatever comes in whatever order, no wire id is answered twice in a run, nothing is answered that is over
// or of another run, and at the end the list shows what is open.
TEST(CodexRequests, RandomSchedulesAnswerEachRequestOnce) {
  const auto seed = std::random_device()();
  SCOPED_TRACE(fmt::format("seed {}", seed));
  std::mt19937 random(seed);
  const auto pick = [&](std::size_t count) { return static_cast<int>(random() % count); };
  int answers = 0;
  for (int round = 0; round < 150; ++round) {
    Desk test;
    test.controller.watch({threadID(0), threadID(1)});
    test.join(0);
    test.join(1);
    std::map<int, int> open;  // wire id -> thread, as the server sees it
    std::set<int> answered;
    int nextID = 0;
    for (int step = 0; step < 150; ++step) {
      const int action = pick(12);
      auto& controller = test.controller;
      if (action <= 1) {
        open[nextID] = pick(2);
        test.desk->event(asking(nextID, open[nextID]).dump());
        ++nextID;
      } else if (action == 2 && !open.empty()) {
        const auto one = std::next(open.begin(), pick(open.size()));
        test.desk->event(asking(one->first, one->second).dump());  // sent again
      } else if (action == 3 && !open.empty()) {
        const auto one = std::next(open.begin(), pick(open.size()));
        test.desk->event(resolved(one->first, one->second).dump());
        open.erase(one);
      } else if (action <= 6 && !controller.requests()->empty()) {
        const auto requests = *controller.requests();
        controller.answer(requests[static_cast<std::size_t>(pick(requests.size()))], "{}");
      } else if (action <= 8 && !test.replies.empty()) {
        if (pick(4) == 0) test.replies.push_back(test.replies.front());
        if (const auto text = test.write()) {
          const int id = Json::parse(*text)["id"].get<int>();
          EXPECT_TRUE(open.contains(id)) << "an answer to what is over";
          EXPECT_TRUE(answered.insert(id).second) << "a second answer";
          ++answers;
        }
      } else if (action <= 10 && !test.events.empty()) {
        test.deliver();
      } else if (action == 11 && pick(8) == 0) {
        test.restart();  // the server lives on and sends what is open again, answered or not
        answered.clear();
        test.join(0);
        test.join(1);
        for (const auto& [id, thread] : open) test.desk->event(asking(id, thread).dump());
      }
    }
    test.deliverAll();
    std::set<int> shown, expected;
    for (const auto& request : *test.controller.requests()) shown.insert(std::stoi(request.wireID));
    for (const auto& [id, thread] : open) expected.insert(id);
    EXPECT_EQ(shown, expected);
  }
  EXPECT_GT(answers, 500);
}

// The real worker against a server on a socket: joins, is asked, answers, is refused a thread, and comes back
// after the connection broke.
TEST(CodexRequestWorker, JoinsAnswersAndComesBack) {
  std::mutex mutex;
  std::condition_variable changed;
  bool broken = false;
  std::vector<std::string> answers;
  CodexStandIn server([&](CodexStandIn::Peer& peer, int number) {
    peer.open();
    peer.send({{"method", "remoteControl/status/changed"}, {"params", Json::object()}});
    bool refused = false;
    for (bool asked = false;;) {
      const Json request = peer.request();
      const auto method = json::string(request, "method");
      const auto thread =
          method == "thread/resume" ? json::string(request["params"], "threadId") : std::nullopt;
      if (method == "thread/loaded/list") {
        peer.respond(request, {{"data", {threadID(2), threadID(1), threadID(3)}}});
      } else if (thread == threadID(2)) {
        refused = true;
        peer.send({{"id", request["id"]}, {"error", {{"message", "no rollout found"}}}});
      } else if (method == "thread/resume") {
        EXPECT_EQ(thread, threadID(1));
        EXPECT_EQ(request["params"]["excludeTurns"], true);
        peer.send(asking(0, 1));
        peer.respond(request, {{"thread", {{"id", threadID(1)}}}});
        asked = true;
      } else if (method == "thread/turns/list") {
        peer.respond(request, {{"data", {{{"items", {{{"id", "c"}, {"type", "commandExecution"}}}}}}}});
      } else {
        std::unique_lock lock(mutex);
        EXPECT_TRUE(asked && refused);
        answers.push_back(fmt::format("{} {}", number, request.dump()));
        if (number > 0) {
          peer.send(resolved(0, 1));
          continue;
        }
        changed.wait(lock, [&] { return broken; });
        return;  // breaks without a word
      }
    }
  });
  VirtualLoop loop;
  CodexRequestController controller(loop,
                                    {.sync = 20ms, .retry = 20ms, .limits = {.call = 1min, .silence = 1min}});
  int told = 0;
  controller.onAnswer = [&] { ++told; };
  controller.start(server.socket());
  controller.watch({threadID(1), threadID(2)});
  ASSERT_TRUE(
      loop.waitUntil([&] { return !controller.requests()->empty() && !controller.details().empty(); }, 1min));
  EXPECT_EQ(*controller.connectedThreads(), std::set{threadID(1)});
  const CodexRequest first = controller.requests()->front();
  controller.answer(first, R"({"decision":"accept"})");
  ASSERT_TRUE(loop.waitUntil([&] { return std::lock_guard(mutex), !answers.empty(); }, 1min));
  {
    std::lock_guard lock(mutex);
    broken = true;
  }
  changed.notify_all();
  std::vector<std::string> errors;
  const auto watching = controller.error().observe([&] {
    if (*controller.error()) errors.push_back(**controller.error());
  });
  ASSERT_TRUE(loop.waitUntil(
      [&] { return !controller.requests()->empty() && controller.requests()->front().epoch != first.epoch; },
      1min));
  EXPECT_EQ(errors,
            std::vector<std::string>{"Codex controls reconnecting: Codex connection closed or timed out."});
  controller.answer(first, R"({"decision":"cancel"})");  // of the old run
  ASSERT_TRUE(loop.waitUntil([&] { return !controller.connectedThreads()->empty(); }, 1min));
  EXPECT_FALSE(*controller.error());
  controller.answer(controller.requests()->front(), R"({"decision":"decline"})");
  ASSERT_TRUE(loop.waitUntil([&] { return controller.requests()->empty(); }, 1min));
  EXPECT_EQ(answers, (std::vector<std::string>{R"(0 {"id":0,"result":{"decision":"accept"}})",
                                               R"(1 {"id":0,"result":{"decision":"decline"}})"}));
  EXPECT_EQ(told, 2);
  controller.stop();
  EXPECT_TRUE(controller.connectedThreads()->empty());
}

}  // namespace
}  // namespace ostrel

#include <atomic>
#include <deque>
#include <mutex>
#include <random>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Codex/CodexRequestController.h"
#include "Codex/FakeRequestPort.h"
#include "CodexStandIn.h"
#include "Support/Seed.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

std::string threadID(int number) { return fmt::format("0190c0de-0000-7000-8000-{:012}", number); }

// Messages of the server about a thread. Wire ids are JSON.
std::string note(const char* method, int thread, const std::string& params) {
  return fmt::format(R"({{"method":"{}","params":{{"threadId":"{}",{}}}}})", method, threadID(thread),
                     params);
}
std::string asking(const std::string& id, int thread, int turn = 0, int content = 0) {
  return fmt::format(
      R"({{"id":{},"method":"execCommandApproval","params":{{"threadId":"{}","turnId":"{}","itemId":"c","n":{}}}}})",
      id, threadID(thread), turn, content);
}
std::string resolved(const std::string& id, int thread) {
  return note("serverRequest/resolved", thread, "\"requestId\":" + id);
}

// Whatever comes in whatever order: no request is answered twice in a run, nothing is answered that is over,
// has changed since it was shown or is of another run, and in the end the list shows what is open. What lies
// between the controller and the book-keeping of the worker is in the test's hands.
TEST(CodexRequests, RandomSchedulesAnswerEachRequestOnce) {
  std::mt19937 random(randomSeed());
  const auto pick = [&](std::size_t count) { return static_cast<int>(random() % count); };
  struct Open {
    int thread, turn, content;
  };
  int answers = 0;
  for (int round = 0; round < 150; ++round) {
    VirtualLoop loop;
    CodexRequestController controller(loop);
    std::unique_ptr<CodexConnectionState> state;
    std::deque<CodexRequestEvent> events;
    FakeRequestPort port;
    std::set<std::string>& desired = port.watched;
    auto& replies = port.replies;
    controller.start(port);
    controller.watch({threadID(0), threadID(1)});
    std::map<int, Open> open;  // by wire id, as the server sees it
    std::set<int> answered;
    const auto ask = [&](int id) {
      state->event(asking(std::to_string(id), open[id].thread, open[id].turn, open[id].content));
    };
    const auto run = [&](int number) {
      replies.clear();
      answered.clear();
      const std::string epoch = fmt::format("run{}", number);
      state = std::make_unique<CodexConnectionState>(
          epoch, [&](CodexRequestEvent event) { events.push_back(std::move(event)); });
      events.emplace_back(codexevent::Reset{epoch, std::nullopt});
      for (const int thread : {0, 1}) {
        state->joining(threadID(thread));
        for (const auto& [id, one] : open) ask(id);  // the server sends them again, of other threads too
        state->joined(threadID(thread));
      }
    };
    const auto deliver = [&] {
      controller.receive(events.front());
      events.pop_front();
    };
    run(0);
    for (int step = 0, nextID = 0; step < 150; ++step) {
      const int action = pick(14);
      const auto any = open.empty() ? open.end() : std::next(open.begin(), pick(open.size()));
      if (action <= 1) {
        open[nextID] = {pick(2), pick(3), 0};
        ask(nextID++);
      } else if (action == 2 && any != open.end()) {
        // Sent again, now and then with other content while it is not answered.
        if (pick(2) && !answered.contains(any->first)) ++any->second.content;
        ask(any->first);
      } else if (action == 3 && any != open.end()) {
        state->event(resolved(std::to_string(any->first), 1 - any->second.thread));  // not this one
        state->event(resolved(std::to_string(any->first), any->second.thread));
        open.erase(any);
      } else if (action == 4 && pick(3) == 0) {
        const int thread = pick(2), turn = pick(3);
        state->event(note("turn/completed", thread, fmt::format(R"("turn":{{"id":"{}"}})", turn)));
        std::erase_if(
            open, [&](const auto& one) { return one.second.thread == thread && one.second.turn == turn; });
      } else if (action <= 7 && !controller.requests()->empty()) {
        const auto requests = *controller.requests();
        controller.answer(requests[static_cast<std::size_t>(pick(requests.size()))], "[]");
      } else if (action <= 9 && !replies.empty()) {
        const auto [request, result] = replies.front();
        if (pick(4)) replies.pop_front();  // otherwise it is tried a second time
        if (const auto text = state->answer(request, result, desired)) {
          const int id = std::stoi(request.wireID);
          ASSERT_EQ(*text, fmt::format(R"({{"id":{},"result":[]}})", id));
          ASSERT_TRUE(open.contains(id)) << "an answer to what is over";
          ASSERT_EQ(Json::parse(request.payload)["n"], open[id].content) << "an answer to something else";
          ASSERT_TRUE(answered.insert(id).second) << "a second answer";
          events.emplace_back(codexevent::Sent{request.id()});
          ++answers;
        }
      } else if (action <= 12 && !events.empty()) {
        deliver();
      } else if (action == 13 && pick(8) == 0) {
        run(step + 1);
      }
    }
    while (!events.empty()) deliver();
    std::set<int> shown, expected;
    for (const auto& request : *controller.requests()) shown.insert(std::stoi(request.wireID));
    for (const auto& [id, one] : open) expected.insert(id);
    ASSERT_EQ(shown, expected);
  }
  EXPECT_GT(answers, 100);
}

// The real worker against a server on a socket: joins, is refused a thread, is asked, answers with the ids as
// they came, and comes back after the connection broke.
TEST(CodexRequestWorker, JoinsAnswersAndComesBack) {
  const std::vector<std::string> ids = {"7", "\"7\"", "123456789012345678901"};
  std::mutex mutex;
  std::vector<std::string> answers;
  CodexStandIn server([&](CodexStandIn::Peer& peer, int number) {
    peer.open();
    const auto say = [&](const std::string& message) { peer.raw(CodexStandIn::bytes(0x81, message)); };
    for (;;) {
      const std::string bytes = peer.frame();
      const Json request = Json::parse(bytes);
      const auto method = json::string(request, "method");
      if (method == "thread/loaded/list") {
        say(asking("8", 3));  // nobody joined it
        peer.respond(request, {{"data", {threadID(2), threadID(1), threadID(3)}}});
      } else if (method == "thread/resume" && request["params"]["threadId"] == threadID(2)) {
        peer.refuse(request, "no rollout found");
      } else if (method == "thread/resume") {
        EXPECT_EQ(request["params"]["threadId"], threadID(1));
        for (const auto& id : ids) say(asking(id, 1));
        peer.respond(request, {{"thread", {{"id", threadID(1)}}}});
      } else if (method == "thread/turns/list") {
        const Json item{{"id", "c"}, {"type", "commandExecution"}, {"aggregatedOutput", "x"}};
        peer.respond(request, {{"data", {{{"items", {item}}}}}});
      } else {
        std::lock_guard lock(mutex);
        answers.push_back(bytes);
        if (number == 0 && answers.size() == ids.size()) return;  // breaks without a word
        if (number > 0) say(resolved(ids[0], 1));
      }
    }
  });
  VirtualLoop loop;
  CodexRequestController controller(loop,
                                    {.sync = 50ms, .retry = 20ms, .limits = {.call = 1min, .silence = 1min}});
  controller.start(server.socket);
  controller.watch({threadID(1), threadID(2)});
  ASSERT_TRUE(loop.waitUntil([&] { return !controller.details().empty(); }, 1min));
  EXPECT_EQ(controller.details().begin()->second, R"({"id":"c","type":"commandExecution"})");
  EXPECT_EQ(*controller.connectedThreads(), std::set{threadID(1)});
  const auto first = *controller.requests();
  ASSERT_EQ(first.size(), 3u);
  std::string error;
  const auto watching = controller.error().observe([&] { error += controller.error()->value_or(""); });
  for (const auto& request : first) controller.answer(request, "{}");
  for (const auto& request : first) controller.answer(request, "[]");
  ASSERT_TRUE(
      loop.waitUntil([&] { return !error.empty() && !controller.connectedThreads()->empty(); }, 1min));
  EXPECT_TRUE(error.starts_with("Codex controls reconnecting: Codex connection closed")) << error;
  EXPECT_FALSE(*controller.error());
  controller.answer(first[1], "[]");  // of the old run
  controller.answer(controller.requests()->at(0), "true");
  ASSERT_TRUE(loop.waitUntil([&] { return controller.requests()->size() == 2; }, 1min));
  std::lock_guard lock(mutex);
  EXPECT_EQ(answers, (std::vector<std::string>{R"({"id":7,"result":{}})", R"({"id":"7","result":{}})",
                                               R"({"id":123456789012345678901,"result":{}})",
                                               R"({"id":7,"result":true})"}));
}

// A ping is no message: nobody waits for one behind it, and nothing is given up.
TEST(CodexRequestWorker, APingAloneEndsNothing) {
  std::atomic<bool> ponged = false;
  CodexStandIn server([&](CodexStandIn::Peer& peer, int) {
    peer.open();
    peer.respond(peer.request(), {{"data", {threadID(1)}}});
    const Json resume = peer.request();
    peer.raw(CodexStandIn::bytes(0x81, asking("1", 1)));
    peer.respond(resume, {{"thread", {{"id", threadID(1)}}}});
    peer.respond(peer.request(), {{"data", Json::array()}});
    peer.raw(CodexStandIn::bytes(0x89, "still there?"));
    EXPECT_EQ(peer.frame(), "still there?");
    ponged = true;
    peer.head();
  });
  VirtualLoop loop;
  CodexRequestController controller(loop, {.limits = {.call = 1min, .silence = 50ms}});
  controller.start(server.socket);
  controller.watch({threadID(1)});
  ASSERT_TRUE(loop.waitUntil([&] { return ponged && !controller.requests()->empty(); }, 1min));
  // Longer than the peer may be silent in the middle of a message.
  EXPECT_FALSE(loop.waitUntil([&] { return controller.requests()->empty(); }, 400ms));
  EXPECT_FALSE(controller.error()->has_value()) << **controller.error();
}

// 600 items of 1 MB of a thread that nobody joined took 586 MB; of a joined one they are no better.
TEST(CodexConnectionState, ItemsAreBoundedAndComeWithTheRequestThatIsAboutThem) {
  std::size_t told = 0;
  std::vector<std::string> items;
  CodexConnectionState state("E", [&](CodexRequestEvent event) {
    if (const auto* const item = std::get_if<codexevent::Item>(&event)) {
      told += item->bytes.size();
      items.push_back(item->item);
    }
  });
  const std::string megabyte(1'000'000, 'x');
  const auto begins = [&](int thread, const std::string& id, const std::string& diff = "d") {
    state.event(
        note("item/started", thread,
             fmt::format(R"("item":{{"id":"{}","type":"fileChange","status":"inProgress","changes":"{}"}})",
                         id, diff)));
  };
  const auto asks = [&](const char* id, int thread, const char* item) {
    state.event(fmt::format(
        R"({{"id":{},"method":"item/fileChange/requestApproval","params":{{"threadId":"{}","itemId":"{}"}}}})",
        id, threadID(thread), item));
  };
  state.joining(threadID(1));
  state.joined(threadID(1));
  for (int i = 0; i < 20; ++i) begins(2, std::to_string(i), megabyte);
  for (int i = 0; i < 20; ++i) begins(1, std::to_string(i), megabyte);
  EXPECT_EQ(told, 0u) << "nothing asks about them";
  EXPECT_LT(state.keptBytes(), 10'000'000u);
  asks("1", 1, "19");
  asks("2", 1, "0");  // gone meanwhile
  asks("3", 2, "19");
  EXPECT_EQ(items, std::vector<std::string>{"19"});
  begins(1, "19", "changed");
  EXPECT_EQ(items.size(), 2u);
  begins(1, "20", megabyte + megabyte);
  asks("4", 1, "20");
  EXPECT_EQ(items.size(), 2u) << "too large for a card";
  state.leave(threadID(1));
  EXPECT_EQ(state.keptBytes(), 0u);
}

// An idle thread is left, so that the server can unload it; without threads there is no connection at all.
TEST(CodexRequestWorker, LeavesWhatIsNotWantedAndThenTheServer) {
  std::atomic<int> connections = 0;
  std::atomic<bool> left = false, ended = false;
  CodexStandIn server([&](CodexStandIn::Peer& peer, int) {
    ++connections;
    try {
      peer.open();
      for (;;) {
        const Json request = peer.request();
        const auto method = json::string(request, "method");
        left = left || (method == "thread/unsubscribe" && request["params"]["threadId"] == threadID(1));
        if (method == "thread/loaded/list") {
          peer.respond(request, {{"data", {threadID(1)}}});
        } else if (method == "thread/resume") {
          peer.respond(request,
                       {{"thread", {{"id", threadID(1)}}}, {"initialTurnsPage", {{"data", Json::array()}}}});
        } else {
          peer.respond(request, Json::object());
        }
      }
    } catch (const CodexStandIn::Gone&) {
      ended = true;
    }
  });
  VirtualLoop loop;
  CodexRequestController controller(loop, {.linger = 50ms, .limits = {.call = 1min, .silence = 1min}});
  controller.start(server.socket);
  loop.waitUntil([] { return false; }, 100ms);
  EXPECT_EQ(connections, 0) << "nothing is wanted";
  controller.watch({threadID(1)});
  ASSERT_TRUE(loop.waitUntil([&] { return controller.connectedThreads()->contains(threadID(1)); }));
  controller.watch({});
  ASSERT_TRUE(loop.waitUntil([&] { return left && ended; }));
  ASSERT_TRUE(loop.waitUntil([&] { return controller.connectedThreads()->empty(); }));
  controller.watch({threadID(1)});
  EXPECT_TRUE(loop.waitUntil([&] { return controller.connectedThreads()->contains(threadID(1)); }));
  EXPECT_EQ(connections, 2);
  EXPECT_FALSE(controller.error()->has_value());
}

}  // namespace
}  // namespace ostrel

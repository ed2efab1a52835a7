#include <algorithm>

#include <gtest/gtest.h>

#include "Client/HerdrLink.h"
#include "Client/SelectedAgent.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Support/MemoryPreferences.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

class SelectedAgentTest : public testing::Test {
 protected:
  Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference) {
    loads_.push_back(reference.value_or("none"));
    co_await sleepFor(300ms);
    if (!problem_.empty()) throw Failure(problem_);
    AgentTranscriptSnapshot snapshot;
    for (const std::string& text : texts_)
      snapshot.messages.push_back({.id = text, .role = "user", .text = text, .timestamp = {}});
    co_return snapshot;
  }
  static HerdrAgent process(const std::string& pane, std::optional<std::string> reference) {
    HerdrAgent agent;
    agent.session = "external";
    agent.paneID = pane;
    agent.provider = "claude";
    agent.transcriptReference = std::move(reference);
    agent.externalProcess.emplace();
    return agent;
  }
  std::string shown() {
    std::string text;
    for (const AgentTranscriptMessage& message : *selected_.shown().transcript) text += message.text + " ";
    return text + "| " + selected_.shown().transcriptNotice->value_or("");
  }

  static Task<Json> answered(std::string method, int& lists) {
    if (method == "ping") co_return Json{{"protocol", 1}};
    ++lists;
    co_return Json{{"agents", Json::array()}};
  }
  static Task<void> silence(std::function<void()> subscribed) {
    subscribed();
    co_await sleepFor(24h);
  }
  static Task<std::string> refused(std::string words) {
    if (!words.empty()) throw HerdrProtocol::Refusal(words);
    co_return "";
  }

  std::vector<HerdrAgent> agents_;
  std::vector<std::string> texts_, loads_, commands_;
  std::string problem_, screen_ = "screen";
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  HerdrLink link_{
      loop_,
      preferences_,
      {.run =
           [this](const auto&, const std::vector<std::string>& arguments, Duration, std::stop_token) {
             commands_ = arguments;
             return screen_;
           },
       .request = {},
       .events = {},
       .find = [] { return "/bin/herdr"; },
       .isExecutable = {}}};
  SelectedAgent selected_{loop_,
                          preferences_,
                          link_,
                          {.loadHistory = [this](auto reference, auto, auto) { return load(reference); },
                           .readPane = {},
                           .current =
                               [this](const std::string& id) {
                                 const auto found = std::ranges::find(agents_, id, &HerdrAgent::id);
                                 return found == agents_.end() ? std::nullopt : std::optional(*found);
                               }}};
};

TEST_F(SelectedAgentTest, ShowsWhatWasLastSeenAndKeepsItThroughFailures) {
  agents_ = {process("1", "a"), process("2", "b"), process("3", {})};
  texts_ = {"first"};
  selected_.open(agents_[0]);
  loop_.runFor(10ms);
  EXPECT_TRUE(*selected_.shown().loadingHistory);
  loop_.runFor(300ms);
  EXPECT_EQ(shown(), "first | ");
  EXPECT_FALSE(*selected_.shown().loadingHistory);
  problem_ = "The file has gone.";
  loop_.runFor(2s);
  EXPECT_EQ(shown(), "first | The file has gone.");

  problem_.clear();
  texts_.clear();
  loop_.runFor(2s);
  EXPECT_EQ(shown(), "first | No conversation messages available yet.") << "a file cut to nothing";
  texts_ = {"first"};
  loop_.runFor(2s);
  EXPECT_EQ(shown(), "first | ");

  // A switch: what is under way for the other agent is dropped, what was seen of it is there at once.
  texts_ = {"second"};
  selected_.open(agents_[1]);
  loop_.runFor(100ms);
  EXPECT_EQ(shown(), "| ");
  selected_.open(agents_[0]);
  EXPECT_EQ(shown(), "first | ");
  loop_.runFor(400ms);
  EXPECT_EQ(shown(), "second | ");
  EXPECT_EQ(loads_.back(), "a");

  // A look a second, and none for an agent that has gone.
  const std::size_t before = loads_.size();
  loop_.runFor(5s);
  EXPECT_EQ(loads_.size(), before + 5);
  selected_.open(agents_[2]);
  loop_.runFor(100ms);
  EXPECT_EQ(
      shown(),
      "| This terminal has not reported its conversation identity. Choose Link exact conversation to view "
      "its history.");
  agents_.clear();
  loop_.runFor(10s);
  EXPECT_LE(loads_.size(), before + 6);
  texts_ = {};
  agents_ = {process("4", "d")};
  selected_.open(agents_[0]);
  loop_.runFor(400ms);
  EXPECT_EQ(shown(), "| No conversation messages available yet.");
}

// Through a link that knows a session with a socket.
TEST_F(SelectedAgentTest, APaneThatIsNotFoundAsksForTheListAtOnce) {
  int lists = 0;
  std::string refusal;
  HerdrLink link(loop_, preferences_,
                 {.run =
                      [](const auto&, const std::vector<std::string>& arguments, Duration, std::stop_token) {
                        return arguments[0] == "api"s
                                   ? R"({"schemas":{},"protocol":1})"s
                                   : R"({"sessions":[{"name":"one","running":true,"socket_path":"/one"}]})"s;
                      },
                  .request = [&](auto, auto method, auto) { return answered(method, lists); },
                  .events = [](auto, auto, auto subscribed, auto) { return silence(subscribed); },
                  .find = [] { return "/bin/herdr"; },
                  .isExecutable = {}});
  link.connect();
  ASSERT_TRUE(loop_.waitUntil([&] { return lists == 1; }));
  loop_.runFor(5s);
  HerdrAgent pane;
  pane.session = "one";
  pane.paneID = "w1:p1";
  pane.provider = "gemini";
  pane.terminalID = "term_1";
  agents_ = {pane};
  SelectedAgent selected(loop_, preferences_, link,
                         {.loadHistory = {},
                          .readPane = [&](auto, auto, auto) { return refused(refusal); },
                          .current = [this](const std::string&) { return std::optional(agents_[0]); }});
  const int before = lists;
  refusal = "pane is busy";
  selected.open(pane);
  loop_.runFor(400ms);
  EXPECT_EQ(*selected.shown().outputError, "pane is busy");
  EXPECT_EQ(lists, before);
  refusal = "pane w1:p1 not found";
  loop_.runFor(500ms);
  EXPECT_EQ(lists, before + 1);
}

TEST_F(SelectedAgentTest, ReadsAPaneUntilAnotherTerminalTakesIt) {
  HerdrAgent pane;
  pane.session = "one";
  pane.paneID = "p1";
  pane.provider = "gemini";
  pane.terminalID = "t1";
  agents_ = {pane};
  selected_.open(pane);
  ASSERT_TRUE(loop_.waitUntil([&] { return *selected_.shown().hasLoadedOutput; }));
  EXPECT_EQ(*selected_.shown().output, "screen");
  EXPECT_EQ(commands_, (std::vector{"--session"s, "one"s, "pane"s, "read"s, "p1"s, "--source"s, "visible"s,
                                    "--format"s, "text"s}));
  EXPECT_EQ(shown(), "| Use the interactive terminal for this provider’s full conversation and controls.");
  screen_ = "\xff";
  loop_.runFor(1s);
  ASSERT_TRUE(loop_.waitUntil([&] { return selected_.shown().outputError->has_value(); }));
  EXPECT_EQ(*selected_.shown().outputError, "Terminal output is not valid UTF-8 text.");
  EXPECT_EQ(*selected_.shown().output, "screen");
  agents_[0].terminalID = "t2";
  screen_ = "another's";
  const auto strange = [&] {
    loop_.runFor(1s);  // a look's answer takes real time to come
    return *selected_.shown().output != "screen";
  };
  EXPECT_FALSE(loop_.waitUntil(strange, 300ms));
}

}  // namespace
}  // namespace ostrel

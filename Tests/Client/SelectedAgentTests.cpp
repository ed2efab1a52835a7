#include <algorithm>

#include <gtest/gtest.h>

#include "Client/HerdrLink.h"
#include "Client/SelectedAgent.h"
#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Support/InlineBackground.h"
#include "Support/MemoryPreferences.h"
#include "Support/NoPorts.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

using namespace std::literals;

// A session "one" with a socket, whose list is counted and whose panes are refused.
class OneSession final : public NoHerdr {
 public:
  int lists = 0;
  std::string refusal;

  std::optional<std::filesystem::path> find() override { return "/bin/herdr"; }
  std::string run(const std::filesystem::path&, const std::vector<std::string>& arguments, Duration,
                  std::stop_token) override {
    return arguments[0] == "api" ? R"({"schemas":{},"protocol":1})"
                                 : R"({"sessions":[{"name":"one","running":true,"socket_path":"/one"}]})";
  }
  Task<Json> request(std::string, std::string method, Json) override {
    if (method == "ping") co_return Json{{"protocol", 1}};
    ++lists;
    co_return Json{{"agents", Json::array()}};
  }
  Task<void> events(std::string, Json, std::function<void()> subscribed,
                    std::function<void(const Json&)>) override {
    subscribed();
    co_await sleepFor(24h);
  }
  Task<std::string> read(std::string, std::string, std::string) override {
    if (!refusal.empty()) throw HerdrProtocol::Refusal(refusal);
    co_return "";
  }
};

class SelectedAgentTest : public testing::Test, protected TranscriptSource {
 protected:
  Task<AgentTranscriptSnapshot> load(std::optional<std::string> reference, std::optional<std::string>,
                                     std::string) override {
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

  // What there is now.
  void list(std::vector<HerdrAgent> agents) {
    agents_ = std::move(agents);
    inventory_.changed(AgentInventory::Source::external, agents_);
  }
  // Whose only words are a pane's screen.
  struct Commands final : NoHerdr {
    std::vector<std::string> last;
    std::string screen = "screen";
    std::optional<std::filesystem::path> find() override { return "/bin/herdr"; }
    std::string run(const std::filesystem::path&, const std::vector<std::string>& arguments, Duration,
                    std::stop_token) override {
      last = arguments;
      return screen;
    }
  };

  std::vector<HerdrAgent> agents_;
  std::vector<std::string> texts_, loads_;
  std::string problem_;
  VirtualLoop loop_;
  MemoryPreferences preferences_;
  Commands herdr_;
  InlineBackground commands_;
  HerdrLink link_{loop_, preferences_, herdr_, commands_};
  AgentInventory inventory_{preferences_};
  SelectedAgent selected_{loop_, {preferences_, link_, inventory_, this}};
};

TEST_F(SelectedAgentTest, ShowsWhatWasLastSeenAndKeepsItThroughFailures) {
  list({process("1", "a"), process("2", "b"), process("3", {})});
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
  list({});
  loop_.runFor(10s);
  EXPECT_LE(loads_.size(), before + 6);
  texts_ = {};
  list({process("4", "d")});
  selected_.open(agents_[0]);
  loop_.runFor(400ms);
  EXPECT_EQ(shown(), "| No conversation messages available yet.");
}

// Through a link that knows a session with a socket.
TEST_F(SelectedAgentTest, APaneThatIsNotFoundAsksForTheListAtOnce) {
  OneSession herdr;
  HerdrLink link(loop_, preferences_, herdr, commands_);
  link.connect();
  ASSERT_TRUE(loop_.waitUntil([&] { return herdr.lists == 1; }));
  loop_.runFor(5s);
  HerdrAgent pane;
  pane.session = "one";
  pane.paneID = "w1:p1";
  pane.provider = "gemini";
  pane.terminalID = "term_1";
  list({pane});
  SelectedAgent selected(loop_, {preferences_, link, inventory_, this});
  const int before = herdr.lists;
  herdr.refusal = "pane is busy";
  selected.open(pane);
  loop_.runFor(400ms);
  EXPECT_EQ(*selected.shown().outputError, "pane is busy");
  EXPECT_EQ(herdr.lists, before);
  herdr.refusal = "pane w1:p1 not found";
  loop_.runFor(500ms);
  EXPECT_EQ(herdr.lists, before + 1);
}

TEST_F(SelectedAgentTest, ReadsAPaneUntilAnotherTerminalTakesIt) {
  HerdrAgent pane;
  pane.session = "one";
  pane.paneID = "p1";
  pane.provider = "gemini";
  pane.terminalID = "t1";
  list({pane});
  selected_.open(pane);
  ASSERT_TRUE(loop_.waitUntil([&] { return *selected_.shown().hasLoadedOutput; }));
  EXPECT_EQ(*selected_.shown().output, "screen");
  EXPECT_EQ(herdr_.last, (std::vector{"--session"s, "one"s, "pane"s, "read"s, "p1"s, "--source"s, "visible"s,
                                      "--format"s, "text"s}));
  EXPECT_EQ(shown(), "| Use the interactive terminal for this provider’s full conversation and controls.");
  herdr_.screen = "\xff";
  loop_.runFor(1s);
  ASSERT_TRUE(loop_.waitUntil([&] { return selected_.shown().outputError->has_value(); }));
  EXPECT_EQ(*selected_.shown().outputError, "Terminal output is not valid UTF-8 text.");
  EXPECT_EQ(*selected_.shown().output, "screen");
  pane.terminalID = "t2";
  list({pane});
  herdr_.screen = "another's";
  const auto strange = [&] {
    loop_.runFor(1s);  // a look's answer takes real time to come
    return *selected_.shown().output != "screen";
  };
  EXPECT_FALSE(loop_.waitUntil(strange, 300ms));
}

}  // namespace
}  // namespace ostrel

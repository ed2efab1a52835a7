#include <filesystem>
#include <fstream>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Client/CodexRolloutLights.h"
#include "Discovery/CodexRollout.h"
#include "Platform/Linux/InotifyWatcher.h"
#include "Support/TemporaryFolder.h"
#include "Support/VirtualLoop.h"

namespace ostrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

std::string event(const char* type, int second = 5, const char* more = "") {
  return fmt::format(
      R"({{"timestamp":"2026-11-23T14:00:{:02}.250Z","ordinal":3,"type":"event_msg","payload":{{"type":"{}","turn_id":"t"{}}}}})"
      "\n",
      second, type, more);
}
// Words of the lines in other places than theirs, as a conversation about Codex has them.
std::string talk(std::size_t size = 10) {
  return R"({"type":"response_item","payload":{"type":"task_complete","text":")" + std::string(size, 'x') +
         R"( {\"type\":\"event_msg\",\"payload\":{\"type\":\"turn_aborted\"}}"}})" + "\n";
}
const WallTime kMoment = WallTime(std::chrono::seconds(1795442405)) + 250ms;

TEST(CodexRolloutParser, BelievesItsLinesHoweverTheyAreCut) {
  const std::string text = talk() + event("task_started", 1) + "{broken task_complete\n\n" + talk() +
                           event("task_complete", 5, R"(,"last_agent_message":"task_started")") + talk();
  for (std::size_t cut = 0; cut <= text.size(); ++cut) {
    CodexRolloutParser parser;
    parser.feed(std::string_view(text).substr(0, cut));
    parser.feed(std::string_view(text).substr(cut));
    ASSERT_EQ(parser.turn(), (CodexTurn{AgentState::idle, kMoment})) << cut;
  }
  CodexRolloutParser middle(false);
  middle.feed(event("task_complete").substr(1));
  EXPECT_EQ(middle.turn().state, AgentState::unknown) << "the line began before";
  middle.feed(event("task_started"));
  EXPECT_EQ(middle.turn().state, AgentState::working);
  std::string unended = event("turn_aborted");
  unended.pop_back();
  middle.feed(unended);
  EXPECT_EQ(middle.turn().state, AgentState::working);
  middle.feed("\n");
  EXPECT_EQ(middle.turn().state, AgentState::idle);
}

class RolloutFile : public testing::Test {
 protected:
  void append(const std::string& text) { std::ofstream(path_, std::ios::app | std::ios::binary) << text; }
  std::string state(std::optional<bool> mayAsk = {}) {
    const auto turn = rollouts_.look(path_, mayAsk);
    return turn ? std::string(stateName(turn->state)) : "none";
  }
  TemporaryFolder folder_;
  const fs::path path_ =
      folder_.path() / "rollout-2026-11-23T14-00-00-11111111-2222-4333-8444-555555555555.jsonl";
  CodexRollouts rollouts_;
};

TEST_F(RolloutFile, IsReadFromItsEndAndThenByWhatIsAppended) {
  EXPECT_EQ(state(), "none");
  append(event("task_started") + talk(3 << 20));
  EXPECT_EQ(state(), "working") << "the start of the turn lies far back";
  append(event("task_complete").substr(0, 40));
  EXPECT_EQ(state(), "working");
  append(event("task_complete").substr(40));
  EXPECT_EQ(state(), "idle");
  append(event("task_started"));
  EXPECT_EQ(state(), "working");
  fs::resize_file(path_, 0);
  EXPECT_EQ(state(), "unknown");
  append(event("turn_aborted"));
  EXPECT_EQ(state(), "idle");
  std::ofstream(path_.string() + "2") << event("task_started") << talk(9000);
  fs::rename(path_.string() + "2", path_);
  EXPECT_EQ(state(), "working") << "another file, of which nothing was read";
  fs::remove(path_);
  EXPECT_EQ(state(), "none");
}

// It may ask its terminal something, which no line tells.
TEST_F(RolloutFile, AToolThatDoesNotAnswerIsNotWorkForEver) {
  const auto call = [](const char* type, const char* id) {
    return fmt::format(R"({{"type":"response_item","payload":{{"type":"{}","call_id":"{}"}}}})"
                       "\n",
                       type, id);
  };
  const auto silent = [&](std::optional<bool> mayAsk) {
    fs::last_write_time(path_, fs::file_time_type::clock::now() - 70s);
    return state(mayAsk);
  };
  append(event("task_started") + talk());
  EXPECT_EQ(silent(true), "working") << "the model may think for long";
  append(call("function_call", "a") + call("custom_tool_call", "b"));
  EXPECT_EQ(state(true), "working") << "it has just been called";
  EXPECT_EQ(silent(true), "unknown");
  EXPECT_EQ(state(), "unknown");
  EXPECT_EQ(silent(false), "working") << "without a terminal nobody can be asked";
  append(call("function_call_output", "a"));
  EXPECT_EQ(silent(true), "unknown");
  append(call("custom_tool_call_output", "b"));
  EXPECT_EQ(silent(true), "working");
  append(call("function_call", "c") + event("turn_aborted"));
  EXPECT_EQ(silent(true), "idle");
  append(event("task_started"));
  EXPECT_EQ(silent(true), "working") << "what the last turn left open is not this one's";
}

// Between two scans the file itself tells, and a scan that is older than it takes nothing back.
TEST_F(RolloutFile, LightsFollowItBetweenScans) {
  VirtualLoop loop;
  BackgroundPool pool;
  InotifyWatcher files(loop);
  Published<std::vector<HerdrAgent>> scanned;
  std::atomic<int> looks = 0;
  int rescans = 0;
  CodexRolloutLights lights(loop, pool,
                            {files,
                             [&](const std::string& path) {
                               ++looks;
                               return rollouts_.look(path);
                             },
                             folder_.path() / "sessions", [&] { ++rescans; }},
                            scanned);
  append(event("task_started"));
  HerdrAgent agent;
  agent.provider = "codex";
  agent.externalProcess.emplace();
  agent.transcriptKind = "path";
  agent.transcriptReference = path_;
  agent.tellsState = true;
  agent.state = AgentState::working;
  scanned.set({agent});
  ASSERT_EQ(lights.agents()->size(), 1u) << "at once";
  const auto becomes = [&](AgentState state) {
    return loop.waitUntil([&] {
      loop.runFor(25ms);
      return lights.agents()->front().state == state;
    });
  };
  ASSERT_TRUE(becomes(AgentState::working));
  loop.waitUntil([&] { return looks > 0; });
  append(event("task_complete"));
  ASSERT_TRUE(becomes(AgentState::idle));
  EXPECT_EQ(lights.agents()->front().since, kMoment);
  agent.title = "a scan that had begun before";
  scanned.set({agent});
  EXPECT_EQ(lights.agents()->front().state, AgentState::idle);
  const int before = looks;
  folder_.write("another.jsonl", "x");
  loop.runFor(1min);
  EXPECT_LE(looks - before, 1) << "other files cost nothing";

  // A terminal without a conversation may get its file at any moment.
  agent.transcriptReference.reset();
  agent.transcriptKind.reset();
  agent.tellsState = false;
  agent.codexTie = CodexTie{};
  scanned.set({agent});
  EXPECT_EQ(rescans, 0);
  fs::create_directories(folder_.path() / "sessions");
  loop.runFor(1ms);
  EXPECT_GT(rescans, 0);
}

}  // namespace
}  // namespace ostrel

#include <gtest/gtest.h>

#include "Claude/PermissionCards.h"

namespace ostrel {
namespace {

using Answer = ClaudePermissionAnswer;

ClaudePermissionRequest request(const char* tool, const char* input, const char* suggestions = "[]") {
  const std::string line = std::string(R"({"session_id":"s","tool_name":")") + tool + R"(","tool_input":)" +
                           input + R"(,"permission_suggestions":)" + suggestions + "}";
  return ClaudePermissionRequest::parse(line, "id", TimePoint()).value();
}

TEST(PermissionCardTest, SaysWhatIsAskedAndOffersWhatTheRequestAllows) {
  for (const auto& [tool, input, title, detail] : std::vector<std::array<const char*, 4>>{
           {"Bash", R"({"command":"ls","description":"Élan"})", "Claude wants to élan", "ls"},
           {"Bash", R"({"command":7,"description":""})", "Claude wants to run a command", ""},
           {"mcp__github__create_pull_request", R"({"b":"/é","a":[]})",
            "Claude wants to use github · create_pull_request", "{\n  \"a\": [],\n  \"b\": \"/é\"\n}"},
           {"mcp__server", "{}", "Claude wants to use mcp__server", "{}"}}) {
    const PermissionCardModel card(request(tool, input));
    EXPECT_EQ(card.heading(), title);
    EXPECT_EQ(card.request().detail, detail);
  }
  const char* const rules = R"([{"type":"addRules","behavior":"deny","rules":[{"toolName":"No"}]},
      {"type":"addRules","behavior":"allow",
       "rules":[{"toolName":"Bash","ruleContent":"ls *"},{},{"toolName":"Read"}]}])";
  EXPECT_EQ(PermissionCardModel(request("", "{}", rules)).alwaysLine(),
            "Allow from now on: Bash(ls *), Read");
  const PermissionCardModel plain(request("Read", "{}", R"([{"type":"setMode"}])"));
  EXPECT_FALSE(plain.offersAlways() || plain.instead(" \n\t"));
  EXPECT_EQ(plain.instead(" use rg "), (Answer{Answer::Deny{"use rg"}}));
}

TEST(QuestionCardTest, GathersAnswersByPointerAndKeys) {
  const auto asked = request("AskUserQuestion", R"({"questions":[{"header":"no question"},
      {"question":"One?","options":[{"label":"A"},{"description":"no label"},{"label":"B"}]},
      {"question":"Many?","multiSelect":true,"options":[{"label":"X"},{"label":"Y"},{"label":"Z"}]}]})");
  QuestionCardModel card(asked);
  EXPECT_EQ(card.heading(), "Claude has 2 questions");
  card.choose(0, 0);
  card.choose(0, 1);
  card.setOther(0, " mine ");
  EXPECT_EQ(card.picks(0), std::vector<std::string>{"mine"});
  card.setOther(0, "  ");
  EXPECT_EQ(card.send(), std::nullopt);
  for (const std::size_t option : {2u, 1u, 0u, 1u}) card.choose(1, option);
  card.setOther(1, "own");
  EXPECT_EQ(card.send(), (Answer{Answer::Answers{{{"One?", {"B"}}, {"Many?", {"X", "Z", "own"}}}}}));

  QuestionCardModel keys(asked);
  EXPECT_EQ(keys.enter(), std::nullopt);  // "A", and on to the next question
  EXPECT_EQ(keys.focusedQuestion(), 1u);
  for (int i = 0; i < 9; ++i) keys.down();
  EXPECT_EQ(keys.enter(), std::nullopt) << "behind the options, but not complete yet";
  keys.focus(1, 2);                       // a click
  EXPECT_EQ(keys.enter(), std::nullopt);  // "Z": more may follow
  keys.focus(1, 9);                       // into the field behind them
  EXPECT_EQ(keys.enter(), (Answer{Answer::Answers{{{"One?", {"A"}}, {"Many?", {"Z"}}}}}));
}

}  // namespace
}  // namespace ostrel

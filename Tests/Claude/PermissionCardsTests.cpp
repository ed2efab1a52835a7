#include <gtest/gtest.h>

#include "Claude/PermissionCards.h"

namespace ostrel {
namespace {

using Answer = ClaudePermissionAnswer;
using Picks = std::vector<std::string>;

ClaudePermissionRequest request(const Json& fields) {
  Json line{{"session_id", "s"}};
  line.update(fields);
  return ClaudePermissionRequest::parse(json::dump(line), "id", TimePoint()).value();
}

TEST(ClaudePermissionRequestTest, SaysWhatIsAskedInPlainWords) {
  struct Case {
    const char* tool;
    const char* input;
    const char* title;
    const char* detail;
  };
  const Case cases[] = {
      {"Bash", R"({"command":"ls","description":"Look"})", "Look", "ls"},
      {"Bash", R"({"command":7,"description":""})", "Run a command", ""},
      {"bash", "[]", "Use bash", "{}"},
      {"Edit", R"({"file_path":"/a"})", "Edit a file", "/a"},
      {"MultiEdit", R"({"file_path":"/a"})", "Edit a file", "/a"},
      {"Write", R"({"file_path":"/a"})", "Write a file", "/a"},
      {"NotebookEdit", R"({"notebook_path":"/n"})", "Edit a notebook", "/n"},
      {"Read", R"({"file_path":"/a"})", "Read a file", "/a"},
      {"WebFetch", R"({"url":"u"})", "Open a web page", "u"},
      {"WebSearch", R"({"query":"q"})", "Search the web", "q"},
      {"ExitPlanMode", R"({"plan":"1. x"})", "Approve the plan and start", "1. x"},
      {"mcp__github__create_pull_request", R"({"b":"/x","a":[1]})", "Use github · create_pull_request",
       "{\n  \"a\": [\n    1\n  ],\n  \"b\": \"/x\"\n}"},
      {"mcp__server", "{}", "Use mcp__server", "{}"},
      {"mcp_a_b_c", "{}", "Use mcp_a_b_c", "{}"},
      {"Task", R"({"é":"😀"})", "Use Task", "{\n  \"é\": \"😀\"\n}"},
  };
  for (const Case& c : cases) {
    const auto read = request({{"tool_name", c.tool}, {"tool_input", Json::parse(c.input)}});
    EXPECT_EQ(read.title, c.title);
    EXPECT_EQ(read.detail, c.detail) << c.tool;
  }
}

TEST(PermissionCardTest, OffersWhatTheRequestAllows) {
  PermissionCardModel plain(
      request({{"tool_name", "Bash"}, {"tool_input", {{"description", "Élan vital"}}}}));
  EXPECT_EQ(plain.heading(), "Claude wants to élan vital");
  EXPECT_FALSE(plain.offersAlways());
  EXPECT_EQ(plain.instead(" \n\t"), std::nullopt);
  EXPECT_EQ(plain.instead(" use rg "), (Answer{Answer::Deny{"use rg"}}));
  const Json allow =
      Json::parse(R"({"type":"addRules","behavior":"allow","rules":)"
                  R"([{"toolName":"Bash","ruleContent":"git *"},{"toolName":7},{"toolName":"mcp__k"}]})");
  const auto suggesting = [&](Json list) {
    return PermissionCardModel(request({{"tool_name", "Read"}, {"permission_suggestions", std::move(list)}}));
  };
  Json deny = allow;
  deny["behavior"] = "deny";
  EXPECT_EQ(suggesting({deny, allow, {{"type", "setMode"}}}).alwaysLine(),
            "Allow from now on: Bash(git *), mcp__k");
  EXPECT_FALSE(suggesting({deny, {{"type", "setMode"}}}).offersAlways());
  EXPECT_FALSE(suggesting({allow, "no object"}).offersAlways());
}

TEST(QuestionCardTest, GathersAnswersByPointerAndKeys) {
  QuestionCardModel card(
      request({{"tool_name", "AskUserQuestion"}, {"tool_input", Json::parse(R"({"questions":[
          {"question":"One?","options":[{"label":"A"},{"description":"no label"},{"label":"B"}]},
          {"header":"no question"},
          {"question":"Many?","multiSelect":true,"options":[{"label":"X"},{"label":"Y"},{"label":"Z"}]}]})")}}));
  EXPECT_EQ(card.heading(), "Claude has 2 questions");
  card.choose(0, 0);
  card.choose(0, 1);
  EXPECT_EQ(card.picks(0), Picks{"B"});
  card.setOther(0, " mine ");
  EXPECT_EQ(card.picks(0), Picks{"mine"});
  card.setOther(0, "  ");
  EXPECT_EQ(card.picks(0), Picks{"B"});
  EXPECT_FALSE(card.complete());
  EXPECT_EQ(card.send(), std::nullopt);
  for (const std::size_t option : {2u, 1u, 0u, 1u}) card.choose(1, option);
  card.setOther(1, "own");
  EXPECT_EQ(card.picks(1), (Picks{"X", "Z", "own"}));
  EXPECT_EQ(card.send(), (Answer{Answer::Answers{{{"One?", {"B"}}, {"Many?", {"X", "Z", "own"}}}}}));

  QuestionCardModel keys(card.request());
  keys.up();
  keys.tab();
  keys.tab();
  EXPECT_EQ(keys.focusedQuestion(), 0u);
  EXPECT_EQ(keys.enter(), std::nullopt);  // "A", and on to the next question
  EXPECT_EQ(keys.focusedQuestion(), 1u);
  for (int i = 0; i < 9; ++i) keys.down();
  EXPECT_EQ(keys.highlighted(), 3u);
  EXPECT_EQ(keys.enter(), std::nullopt) << "not complete yet";
  for (int i = 0; i < 2; ++i) {
    keys.up();
    EXPECT_EQ(keys.enter(), std::nullopt);  // "Z", then "Y": more may follow
  }
  keys.down();
  keys.down();
  EXPECT_EQ(keys.enter(), (Answer{Answer::Answers{{{"One?", {"A"}}, {"Many?", {"Y", "Z"}}}}}));
}

}  // namespace
}  // namespace ostrel

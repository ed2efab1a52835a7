#include <gtest/gtest.h>

#include "Claude/PermissionCards.h"
#include "Runtime/Failure.h"

namespace ostrel {
namespace {

using Answer = RequestAnswer;
using Entries = std::map<std::string, std::vector<std::string>>;

Answer answers(Entries entries) { return {.choice = "answer", .entries = std::move(entries)}; }

ClaudePermissionRequest request(const char* tool, const char* input, const char* suggestions = "[]") {
  const std::string line = std::string(R"({"session_id":"s","tool_name":")") + tool + R"(","tool_input":)" +
                           input + R"(,"permission_suggestions":)" + suggestions + "}";
  return ClaudePermissionRequest::parse(line, "id", TimePoint()).value();
}

TEST(PermissionCardTest, OffersWhatTheRequestAllows) {
  EXPECT_EQ(PermissionCardModel(request("Bash", R"({"command":"ls","description":" Élan "})")).purpose(),
            "Élan");
  EXPECT_EQ(PermissionCardModel(request("Bash", R"({"command":7})")).purpose(), "");
  EXPECT_EQ(request("mcp__server__tool", R"({"b":"/é","a":[]})").detail,
            "{\n  \"a\": [],\n  \"b\": \"/é\"\n}");
  const char* const rules = R"([{"type":"addRules","behavior":"deny","rules":[{"toolName":"No"}]},
      {"type":"addRules","behavior":"allow",
       "rules":[{"toolName":"Bash","ruleContent":"ls *"},{},{"toolName":"Read"}]}])";
  EXPECT_EQ(PermissionCardModel(request("", "{}", rules)).alwaysLine(),
            "Allow from now on: Bash(ls *), Read");
  const PermissionCardModel plain(request("Read", "{}", R"([{"type":"setMode"}])"));
  EXPECT_FALSE(plain.offersAlways() || plain.instead(" \n\t"));
  EXPECT_EQ(plain.instead(" use rg "), (Answer{.choice = "deny", .message = "use rg"}));
}

// What Claude Code would be told, or the words that refuse the answer.
std::string told(const ClaudePermissionRequest& asked, const Answer& answer) {
  try {
    return asked.decided(answer).reply(asked)["hookSpecificOutput"]["decision"].dump();
  } catch (const Failure& failure) {
    return failure.message();
  }
}

TEST(ClaudePermissionRequestTest, TakesOnlyTheAnswersThatItOffers) {
  const auto bash = request("Bash", R"({"command":"ls"})");
  EXPECT_EQ(told(bash, {.choice = "allow"}), R"({"behavior":"allow"})");
  EXPECT_EQ(told(bash, {.choice = "always"}), "This choice is not on offer.") << "no rules came with it";
  EXPECT_EQ(told(bash, answers({{"ls", {"x"}}})), "This choice is not on offer.");
  EXPECT_EQ(told(bash, {.choice = "allow", .entries = {{"a", {"b"}}}}), "This request asks no questions.");
  EXPECT_EQ(told(bash, {.choice = "allow", .message = "but"}), "Only a refusal takes a message.");
  EXPECT_EQ(told(bash, {.choice = "deny", .message = " "}), "The message is empty.");

  const auto asked =
      request("AskUserQuestion", R"({"questions":[{"question":"One?","options":[{"label":"A"}]},
      {"question":"Many?","multiSelect":true,"options":[{"label":"Red"},{"label":"Blue"}]}]})");
  EXPECT_EQ(told(asked, {.choice = "allow"}), "This choice is not on offer.");
  EXPECT_EQ(told(asked, answers({{"One?", {"A"}}})), "Answer each question before submitting.");
  EXPECT_EQ(told(asked, answers({{"One?", {"A"}}, {"Many?", {" "}}})),
            "Answer each question before submitting.");
  EXPECT_EQ(told(asked, answers({{"One?", {"A", "B"}}, {"Many?", {"Red"}}})), "Give one answer to \"One?\".");
  EXPECT_EQ(told(asked, answers({{"One?", {"A"}}, {"Many?", {"Red"}}, {"Else?", {"x"}}})),
            "\"Else?\" is not one of the questions.");
  const auto full = told(asked, answers({{"One?", {"mine"}}, {"Many?", {"Red", "Blue"}}}));
  EXPECT_EQ(Json::parse(full)["updatedInput"]["answers"], (Json{{"One?", "mine"}, {"Many?", "Red, Blue"}}))
      << "several choices are one text, as the terminal's own prompt sends them";
}

// Which answers a person may give who has not read what is asked.
TEST(ClaudePermissionRequestTest, OnlyARefusalGrantsNothing) {
  const auto asked = ClaudePermissionRequest::parse(
      R"({"session_id":"s","tool_name":"Bash","permission_suggestions":[
      {"type":"addRules","behavior":"allow","rules":[{"toolName":"Bash","ruleContent":"ls *"}]}]})",
      "id", {});
  std::vector<std::string> granting;
  for (const RequestChoice& choice : asked->choices()) {
    if (choice.grants) granting.push_back(choice.id);
  }
  EXPECT_EQ(granting, (std::vector<std::string>{"allow", "always"}));
}

TEST(ClaudePermissionRequestTest, ShowsTheChangeThatWouldBeWritten) {
  const auto change = [](const char* tool, const std::string& input) {
    std::string all;
    for (const FileChange& each : request(tool, input.c_str()).changes)
      all += each.kind + " " + each.path + "\n" + each.diff;
    return all;
  };
  EXPECT_EQ(change("Write", R"({"file_path":"/f","content":"a\n\nb"})"), "write /f\n+a\n+\n+b\n");
  EXPECT_EQ(change("Edit", R"({"file_path":"/f","old_string":"1\n2\n3\n4\n5\nx\n7\n8\n9\n10\n11\n12\n13\ny",
      "new_string":"1\n2\n3\n4\n5\nX\nX2\n7\n8\n9\n10\n11\n12\n13\nY"})"),
            "edit /f\n 3\n 4\n 5\n-x\n+X\n+X2\n 7\n 8\n 9\n@@\n 11\n 12\n 13\n-y\n+Y\n");
  EXPECT_EQ(change("MultiEdit",
                   R"({"file_path":"/f","edits":[{"old_string":"a","new_string":"b","replace_all":true},
      {"old_string":"c\n","new_string":""}]})"),
            "edit /f\n@@ every occurrence @@\n-a\n+b\n@@\n-c\n");
  EXPECT_EQ(change("NotebookEdit", R"({"notebook_path":"/n","new_source":"x","edit_mode":"insert"})"),
            "insert cell /n\n+x\n");
  EXPECT_EQ(change("Bash", R"({"command":"x"})"), "");
  std::string many, more;
  for (int i = 0; i < 1500; ++i) {
    many += std::to_string(i) + "\n";
    more += std::to_string(i * 7) + "\n";
  }
  const std::string block = fragmentDiff("same\n" + many, "same\n" + more);
  EXPECT_TRUE(block.starts_with(" same\n 0\n-1\n-2\n") && block.ends_with("+10486\n+10493\n"))
      << "too long to be worked out: as one block";
}

TEST(QuestionCardTest, GathersAnswersByPointerAndKeys) {
  const auto asked = request("AskUserQuestion", R"({"questions":[{"header":"no question"},
      {"question":"One?","options":[{"label":"A"},{"description":"no label"},{"label":"B"}]},
      {"question":"Many?","multiSelect":true,"options":[{"label":"X"},{"label":"Y"},{"label":"Z"}]}]})");
  QuestionCardModel card(asked);
  card.choose(0, 0);
  card.choose(0, 1);
  card.setOther(0, " mine ");
  EXPECT_EQ(card.picks(0), std::vector<std::string>{"mine"});
  card.setOther(0, "  ");
  EXPECT_EQ(card.send(), std::nullopt);
  EXPECT_TRUE(card.focusMissing());
  EXPECT_EQ(card.focusedQuestion(), 1u) << "the first has an answer";
  for (const std::size_t option : {2u, 1u, 0u, 1u}) card.choose(1, option);
  card.setOther(1, "own");
  EXPECT_EQ(card.send(), answers({{"One?", {"B"}}, {"Many?", {"X", "Z", "own"}}}));

  QuestionCardModel keys(asked);
  EXPECT_EQ(keys.enter(), std::nullopt);  // "A", and on to the next question
  EXPECT_EQ(keys.focusedQuestion(), 1u);
  for (int i = 0; i < 9; ++i) keys.down();
  EXPECT_EQ(keys.enter(), std::nullopt) << "behind the options, but not complete yet";
  keys.focus(1, 2);                       // a click
  EXPECT_EQ(keys.enter(), std::nullopt);  // "Z": more may follow
  keys.focus(1, 9);                       // into the field behind them
  EXPECT_EQ(keys.enter(), answers({{"One?", {"A"}}, {"Many?", {"Z"}}}));
}

}  // namespace
}  // namespace ostrel

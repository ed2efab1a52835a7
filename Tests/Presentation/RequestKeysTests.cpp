// The cards for what agents ask, answered with keys alone.
#include "RequestCardsFixture.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using namespace requestCards;

class RequestKeysTest : public RequestCardsTest {};

TEST_F(RequestKeysTest, KeysGoThroughTheQuestionsAndEscapeIsLeftToTheWindow) {
  asked_.claude["1"] = {question()};
  open();
  press(Qt::Key_Down);
  press(Qt::Key_Return);  // "B", and on
  press(Qt::Key_Return);  // "X"
  press(Qt::Key_Down);
  press(Qt::Key_Down);  // into the field
  press(Qt::Key_Z, QStringLiteral("z"));
  EXPECT_FALSE(press(Qt::Key_Escape));
  press(Qt::Key_Tab);
  press(Qt::Key_Up);
  press(Qt::Key_Tab);
  EXPECT_TRUE(asked_.answers.empty());
  press(Qt::Key_Down);
  press(Qt::Key_Down);
  press(Qt::Key_Return);
  EXPECT_EQ(asked_.answers, (std::vector<RequestAnswer>{
                                {.choice = "answer", .entries = {{"One?", {"B"}}, {"Many?", {"X", "z"}}}}}));
  EXPECT_FALSE(view_.rootObject()->isVisible());
  EXPECT_EQ(view_.rootObject()->implicitHeight(), 0);
}

TEST_F(RequestKeysTest, LettersAnswerTheFirstCardAndNoOther) {
  asked_.codex["1"] = {command("1"), command("2")};
  open();
  EXPECT_EQ(item("buttonLetter")->property("text").toString(), QStringLiteral("Y"));
  EXPECT_FALSE(press(Qt::Key_Y, QStringLiteral("y"), {}, true));
  EXPECT_TRUE(asked_.results.empty()) << "a key that is held down";
  for (int i = 0; i < 2; ++i) press(Qt::Key_Y, QStringLiteral("y"));
  EXPECT_EQ(asked_.results.size(), 1u) << "the second one was meant for nothing";
  rest();
  press(Qt::Key_N, QStringLiteral("n"), Qt::ControlModifier);
  EXPECT_EQ(asked_.results.size(), 1u);
  press(Qt::Key_N, QStringLiteral("n"));
  EXPECT_EQ(asked_.results,
            (std::vector<std::string>{R"({"decision":"accept"})", R"({"decision":"decline"})"}));
  EXPECT_FALSE(press(Qt::Key_N, QStringLiteral("n"))) << "nobody waits any more";
}

TEST_F(RequestKeysTest, AFieldKeepsItsLetters) {
  asked_.claude["1"] = {permission("a", R"({"command":"ls"})")};
  open();
  click(middle(item("permissionInstead")));
  rest();
  EXPECT_TRUE(press(Qt::Key_N, QStringLiteral("n")));
  EXPECT_TRUE(asked_.answers.empty());
  EXPECT_EQ(shown(bridge_.claude(), &ClaudeCardRow::permission)->instead(), QStringLiteral("n"));
}

TEST_F(RequestKeysTest, AllQuestionsAreSentWithOneKeyFromEverywhere) {
  asked_.claude["1"] = {question()};
  open();
  QuestionCardBridge* const card = shown(bridge_.claude(), &ClaudeCardRow::question);
  EXPECT_EQ(card->heading(), QStringLiteral("Claude asks 2 questions"));
  EXPECT_TRUE(item("questionKeys"));
  press(Qt::Key_Return);  // "A", and on
  press(Qt::Key_Return, {}, Qt::ControlModifier);
  EXPECT_EQ(card->problem(), QStringLiteral("Answer each question before submitting."));
  press(Qt::Key_Down);
  press(Qt::Key_Return);  // "Y" of those that may be several
  press(Qt::Key_Tab);     // to the first question again
  rest();                 // the card has grown by its words
  press(Qt::Key_Return, {}, Qt::ControlModifier);
  EXPECT_EQ(
      asked_.answers,
      (std::vector<RequestAnswer>{{.choice = "answer", .entries = {{"One?", {"A"}}, {"Many?", {"Y"}}}}}));

  asked_.codex["1"] = {questions("1")};
  bridge_.refresh();
  settle();
  rest();
  click(middle(item("ownAnswer")));
  rest();
  press(Qt::Key_Y, QStringLiteral("y"));
  rest();
  press(Qt::Key_Return, {}, Qt::ControlModifier);
  EXPECT_EQ(asked_.results, std::vector<std::string>{R"({"answers":{"a":{"answers":["y"]}}})"});
}

}  // namespace
}  // namespace ostrel

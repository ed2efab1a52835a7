// The cards for what agents ask, without a display: what their bridge keeps, and a pointer in the real views.
#include "RequestCardsFixture.h"
#include "TerminalWindow.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;
using namespace requestCards;

TEST(RequestsBridgeTest, ACardKeepsWhatWasEnteredAndGoesWithItsRequest) {
  Asked asked;
  VirtualLoop loop;
  asked.claude["1"] = {permission("first")};
  RequestsBridge bridge(loop, asked, {});
  EXPECT_TRUE(bridge.empty());
  bridge.show(agent(1));
  const auto card = [&] { return shown(bridge.claude(), &ClaudeCardRow::permission); };
  PermissionCardBridge* const first = card();
  ASSERT_TRUE(first);
  first->setInstead(QStringLiteral("use rg"));
  asked.claude["1"].push_back(permission("second"));
  bridge.refresh();
  bridge.show(agent(2));
  EXPECT_TRUE(bridge.empty()) << "it asks nothing";
  bridge.show(agent(1));
  ASSERT_EQ(card(), first);
  EXPECT_EQ(first->instead(), QStringLiteral("use rg"));
  loop.runFor(RequestCard::kSettling);
  first->tell();
  ASSERT_TRUE(card() && card() != first);
  EXPECT_EQ(card()->instead(), QString()) << "another request, another card";
  EXPECT_EQ(asked.answers, (std::vector<RequestAnswer>{{.choice = "deny", .message = "use rg"}}));
  asked.claude.clear();
  bridge.refresh();
  EXPECT_TRUE(bridge.empty());
}

// Whatever ended the card before: an answer here, one in the terminal, or another agent's coming up.
TEST(RequestsBridgeTest, ACardThatHasJustComeOrMovedTakesNoAnswer) {
  Asked asked;
  VirtualLoop loop;
  RequestsBridge bridge(loop, asked, {});
  const auto claude = [&] { return shown(bridge.claude(), &ClaudeCardRow::permission); };
  const auto codex = [&] { return shown(bridge.codex(), &CodexCardRow::card); };
  const auto accept = [&] { codex()->choose(codex()->choices()->rows().front().key); };
  asked.claude["1"] = {permission("first"), permission("second")};
  asked.codex["2"] = {command("1"), command("2")};
  for (const auto pause : {120ms, 250ms, 499ms}) {
    bridge.show(agent(1));
    loop.runFor(500ms);
    claude()->choose(QStringLiteral("allow"));
    asked.claude["1"].push_back(permission("next" + std::to_string(pause.count())));
    bridge.refresh();
    loop.runFor(pause);
    claude()->choose(QStringLiteral("allow"));  // the second half of a double click
    EXPECT_EQ(std::exchange(asked.answers, {}), std::vector{plain("allow")}) << pause.count();

    bridge.show(agent(2));
    codex()->setWholeSeen(true);
    loop.runFor(500ms);
    accept();
    asked.codex["2"].erase(asked.codex["2"].begin());  // its server has confirmed
    asked.codex["2"].push_back(command(std::to_string(pause.count())));
    bridge.refresh();
    codex()->setWholeSeen(true);
    codex()->settle();  // the view has moved it up
    loop.runFor(pause);
    accept();
    EXPECT_EQ(std::exchange(asked.results, {}).size(), 1u) << pause.count();
  }
  loop.runFor(500ms);
  accept();
  EXPECT_EQ(asked.results.size(), 1u) << "by now it was read";

  bridge.show(agent(1));
  loop.runFor(500ms);
  bridge.show(agent(2));
  bridge.show(agent(1));
  claude()->choose(QStringLiteral("allow"));
  EXPECT_TRUE(asked.answers.empty()) << "the same card, but it has just come up again";
}

TEST(RequestsBridgeTest, NothingIsGrantedThatWasNotShown) {
  Asked asked;
  VirtualLoop loop;
  RequestsBridge bridge(loop, asked, {});
  asked.claude["1"] = {permission("long", R"({"command":"a long one"})")};
  asked.codex["2"] = {command("1")};
  bridge.show(agent(1));
  loop.runFor(500ms);
  auto* const card = shown(bridge.claude(), &ClaudeCardRow::permission);
  card->choose(QStringLiteral("allow"));
  EXPECT_TRUE(asked.answers.empty());
  EXPECT_EQ(card->problem(), QStringLiteral("Read it to its end before you allow it."));
  card->setWholeSeen(true);
  card->choose(QStringLiteral("allow"));
  EXPECT_EQ(asked.answers, std::vector{plain("allow")});
  bridge.show(agent(2));
  loop.runFor(500ms);
  auto* const codex = shown(bridge.codex(), &CodexCardRow::card);
  codex->choose(codex->choices()->rows().front().key);
  EXPECT_TRUE(asked.results.empty());
  codex->choose(codex->choices()->rows().back().key);
  EXPECT_EQ(asked.results, std::vector<std::string>{R"({"decision":"cancel"})"})
      << "to refuse needs no reading";
}

TEST(RequestsBridgeTest, CodexIsAnsweredOnce) {
  Asked asked;
  VirtualLoop loop;
  asked.codex["1"] = {questions("1"), questions("2")};
  RequestsBridge bridge(loop, asked, {});
  bridge.show(agent(1));
  const auto card = [&](std::size_t row) { return shown(bridge.codex(), &CodexCardRow::card, row); };
  CodexCardBridge* const second = card(1);
  loop.runFor(RequestCard::kSettling);
  second->submit();
  EXPECT_EQ(second->problem(), QStringLiteral("Answer each question before submitting."));
  second->questionList()[0]->setOwn(QStringLiteral("yes"));
  asked.codex["1"].erase(asked.codex["1"].begin());
  bridge.refresh();
  ASSERT_EQ(card(0), second);
  loop.runFor(RequestCard::kSettling);  // letters are its own from now on
  second->submit();
  second->submit();
  EXPECT_TRUE(second->sent());
  EXPECT_EQ(asked.results, std::vector<std::string>{R"({"answers":{"a":{"answers":["yes"]}}})"});
  asked.sent.clear();
  asked.errors[second->request().id()] = "Nothing was sent.";
  bridge.refresh();
  EXPECT_FALSE(second->sent());
  EXPECT_EQ(second->problem(), QStringLiteral("Nothing was sent."));
  asked.codex["1"][0].payload = R"({"questions":[{"id":"b","question":"!"}]})";
  bridge.refresh();
  EXPECT_NE(card(0), second) << "the same number, another question";
}

TEST_F(RequestCardsTest, ADoubleClickAnswersOnlyWhatItWasAimedAt) {
  asked_.codex["1"] = {command("1"), command("2"), command("3")};
  open();
  for (const auto pause : {120ms, 250ms}) {
    QQuickItem* const button = item("codexChoice0");
    ASSERT_TRUE(button && button->isEnabled());
    const QPointF place = middle(button);
    click(place);
    EXPECT_EQ(std::exchange(asked_.results, {}).size(), 1u);
    asked_.codex["1"].erase(asked_.codex["1"].begin());  // Codex has confirmed: the next card moves up
    bridge_.refresh();
    settle();
    EXPECT_EQ(middle(item("codexChoice0")), place) << "the next one's button stands below the pointer";
    loop_.runFor(pause);
    click(place);
    EXPECT_EQ(asked_.results.size(), 0u) << pause.count();
    loop_.runFor(500ms);
  }
}

// The cards stand at the end of the window: when the last one goes, the others come down in its place.
TEST_F(RequestCardsTest, ACardThatComesDownForOneBelowItTakesNoAnswer) {
  asked_.codex["1"] = {command("1"), command("2")};
  open();
  asked_.codex["1"].pop_back();  // answered in the terminal
  bridge_.refresh();
  settle();
  const QPointF place = middle(item("codexChoice0"));
  loop_.runFor(120ms);
  click(place);
  EXPECT_EQ(asked_.results.size(), 0u);
  loop_.runFor(500ms);
  click(place);
  EXPECT_EQ(asked_.results.size(), 1u);
}

TEST_F(RequestCardsTest, YesComesWithTheEndOfTheCommand) {
  std::string lines = "echo hello";
  for (int i = 0; i < 40; ++i) lines += "\\n";
  asked_.claude["1"] = {permission("long", R"({"command":")" + lines + R"(rm -rf /"})")};
  open();
  view_.rootObject()->setProperty("maximumHeight", 400);
  settle();
  QQuickItem* const yes = item("permissionYes");
  ASSERT_TRUE(yes);
  EXPECT_FALSE(yes->isEnabled());
  EXPECT_TRUE(item("permissionUnread"));
  EXPECT_TRUE(item("detailBelow")
                  ->property("text")
                  .toString()
                  .endsWith(QStringLiteral(" more lines below · Show all")));
  click(middle(yes));
  EXPECT_TRUE(asked_.answers.empty());
  click(middle(item("detailMore")));
  loop_.runFor(500ms);
  EXPECT_FALSE(yes->isEnabled()) << "opened, but its end is not on the screen";
  EXPECT_LT(yes->mapToScene(QPointF(0, yes->height())).y(), 400) << "the buttons are";
  EXPECT_TRUE(press(Qt::Key_Y, QStringLiteral("y")));
  EXPECT_TRUE(asked_.answers.empty());
  for (int pages = 0; pages < 20 && press(Qt::Key_PageDown); ++pages) settle();
  EXPECT_TRUE(yes->isEnabled());
  EXPECT_FALSE(item("permissionUnread"));

  asked_.claude["1"] = {permission("short", R"({"command":"ls \u202e -la"})")};
  bridge_.refresh();
  settle();
  EXPECT_TRUE(item("permissionYes")->isEnabled());
  EXPECT_EQ(item("detailText")->property("text").toString(), QStringLiteral("ls ⟨U+202E⟩ -la"));
  loop_.runFor(500ms);
  click(middle(item("permissionYes")));
  EXPECT_EQ(asked_.answers, std::vector{plain("allow")});
}

TEST_F(RequestCardsTest, AWritePromptShowsWhatWouldBeWritten) {
  std::string content;
  for (int i = 0; i < 60; ++i) content += "line" + std::to_string(i) + "\\n";
  asked_.claude["1"] = {
      ClaudePermissionRequest::parse(
          R"({"session_id":"s","tool_name":"Write","tool_input":{"file_path":"/f","content":")" + content +
              R"("}})",
          "w", {})
          .value()};
  open();
  const ListModel<DiffRow>* const rows = shown(bridge_.claude(), &ClaudeCardRow::permission)->diff();
  EXPECT_EQ(rows->rows().front().text, QStringLiteral("write /f  +60"));
  EXPECT_EQ(rows->rows().back().text, QStringLiteral("Show 50 more lines  +50"));
  EXPECT_TRUE(item("permissionDiff") && item("permissionYes")->isEnabled());
  shown(bridge_.claude(), &ClaudeCardRow::permission)->unfold(rows->rows().back().key);
  EXPECT_EQ(rows->rows().back().text, QStringLiteral("+line59"));
}

TEST(TerminalWindowTest, AProcessDescendsFromThoseThatStartedIt) {
  const std::string table =
      "1 0 0 S ?? Sun Nov 22 21:51:10 2026 systemd\n20 1 0 S ?? Sun Nov 22 21:51:10 2026 konsole\n"
      "30 20 0 S pts/1 Sun Nov 22 21:51:10 2026 bash\n31 30 0 S pts/1 Sun Nov 22 21:51:10 2026 claude";
  EXPECT_EQ(TerminalWindow::lineage(table, 31), (std::vector<std::int64_t>{31, 30, 20}));
  EXPECT_EQ(TerminalWindow::lineage("7 8 0 S ?? Sun Nov 22 21:51:10 2026 a\n8 7 0 S ?? Sun Nov 22 21:51:10 "
                                    "2026 b",
                                    7),
            (std::vector<std::int64_t>{7, 8}));
}

}  // namespace
}  // namespace ostrel

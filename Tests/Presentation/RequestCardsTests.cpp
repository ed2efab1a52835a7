// The cards for what agents ask, without a display: what their bridge keeps, and keys through the real views.
#include <QApplication>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>

#include <gtest/gtest.h>

#include "Appearance.h"
#include "Codex/CodexAnswers.h"
#include "Offscreen.h"
#include "RequestsBridge.h"
#include "Support/VirtualLoop.h"
#include "TerminalWindow.h"
#include "UtilityPanel.h"

namespace ostrel {
namespace {

using namespace std::chrono_literals;

HerdrAgent agent(std::int64_t pid) {
  HerdrAgent made;
  made.externalProcess.emplace().pid = pid;
  made.paneID = std::to_string(pid);
  return made;
}

// What agents ask, by their panes.
struct Asked final : RequestSource {
  std::map<std::string, std::vector<ClaudePermissionRequest>> claude;
  std::map<std::string, std::vector<CodexRequest>> codex;
  std::set<std::string> sent;
  std::map<std::string, std::string> errors;
  std::vector<RequestAnswer> answers;
  std::vector<std::string> results;

  std::vector<OpenRequest> of(const HerdrAgent& agent) override {
    std::vector<OpenRequest> all;
    for (const auto& request : claude[agent.paneID]) all.push_back({request.id, "", {}, request});
    for (const auto& request : codex[agent.paneID]) {
      all.push_back({request.id() + request.payload,
                     "",
                     {},
                     CodexAsked{request, CodexCard::of(request, {}), sent.contains(request.id()),
                                errors[request.id()]}});
    }
    return all;
  }
  std::optional<Controls> controls(const HerdrAgent&) override { return std::nullopt; }
  void answer(const std::string& id, const RequestAnswer& answer) override {
    for (auto& [pane, all] : claude) {
      if (std::erase_if(all, [&](const auto& request) { return request.id == id; }) > 0)
        answers.push_back(answer);
    }
    for (auto& [pane, all] : codex) {
      for (const auto& request : all) {
        if (request.id() + request.payload != id) continue;
        results.push_back(codexAnswers::result(request, CodexCard::of(request, {}), false, answer));
        sent.insert(request.id());
      }
    }
  }
  void openLink(const std::string&) override {}
  std::vector<OpenRequest> list() override { return {}; }
  Subscription observe(ChangeSignal::Observer) override { return {}; }
};

RequestAnswer plain(const char* choice) { return {.choice = choice}; }

ClaudePermissionRequest permission(const std::string& id, const std::string& input = "{}") {
  return ClaudePermissionRequest::parse(R"({"session_id":"s","tool_name":"Bash","tool_input":)" + input + "}",
                                        id, {})
      .value();
}
ClaudePermissionRequest question() {
  return ClaudePermissionRequest::parse(
             R"({"session_id":"s","tool_name":"AskUserQuestion","tool_input":{"questions":[
             {"question":"One?","options":[{"label":"A"},{"label":"B"}]},
             {"question":"Many?","multiSelect":true,"options":[{"label":"X"},{"label":"Y"}]}]}})",
             "q", {})
      .value();
}
CodexRequest questions(const std::string& wireID) {
  return {"E", wireID, "t", "item/tool/requestUserInput", R"({"questions":[{"id":"a","question":"?"}]})"};
}

CodexRequest command(const std::string& wireID) {
  return {"E", wireID, "t", "item/commandExecution/requestApproval", R"({"command":"ls"})"};
}

template <class Row, class Card>
Card* shown(const ListModel<Row>* rows, Card* Row::* card, std::size_t row = 0) {
  return rows->rows().size() <= row ? nullptr : rows->rows()[row].*card;
}

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

// The cards' real view, with a pointer and keys.
class RequestCardsTest : public testing::Test {
 protected:
  void open() {
    bridge_.show(agent(1));
    loadView(view_, QStringLiteral("RequestCards"), bridge_);
    view_.resize(400, 600);
    view_.show();
    view_.requestActivate();
    view_.rootObject()->setFocus(true);
    settle();
    ASSERT_TRUE(view_.isActive());
    loop_.runFor(RequestCard::kSettling);
  }
  void settle() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
    view_.grabWindow();  // items find their places as a frame is drawn
    QCoreApplication::processEvents();
  }
  // The first item of that name which can be seen.
  QQuickItem* item(const char* name, QQuickItem* from = nullptr) {
    QQuickItem* const root = from ? from : view_.rootObject();
    if (root->objectName() == QLatin1String(name) && root->isVisible()) return root;
    for (QQuickItem* const child : root->childItems()) {
      if (QQuickItem* const found = item(name, child)) return found;
    }
    return nullptr;
  }
  static QPointF middle(const QQuickItem* item) {
    return item->mapToScene(QPointF(item->width() / 2, item->height() / 2));
  }
  void click(QPointF place) {
    for (const auto type : {QEvent::MouseButtonPress, QEvent::MouseButtonRelease}) {
      QMouseEvent event(type, place, view_.mapToGlobal(place), Qt::LeftButton,
                        type == QEvent::MouseButtonPress ? Qt::LeftButton : Qt::NoButton, Qt::NoModifier);
      event.setTimestamp(++time_);
      QCoreApplication::sendEvent(&view_, &event);
    }
    settle();
  }

  QApplication& application_ = offscreen();
  VirtualLoop loop_;
  Asked asked_;
  RequestsBridge bridge_{loop_, asked_, {}};
  QQmlEngine engine_;
  Appearance appearance_{engine_};
  QQuickView view_{&engine_, nullptr};
  quint64 time_ = 1'000;
};

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

TEST_F(RequestCardsTest, KeysGoThroughTheQuestionsAndEscapeIsLeftToTheWindow) {
  asked_.claude["1"] = {question()};
  open();
  const auto press = [&](int key, const QString& text = {}) {
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(&view_, &event);
    QCoreApplication::processEvents();
    return event.isAccepted();
  };
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

// The cards for what agents ask, without a display: what their bridge keeps, and keys through the real views.
#include <QApplication>
#include <QKeyEvent>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickView>

#include <gtest/gtest.h>

#include "Appearance.h"
#include "RequestsBridge.h"
#include "TerminalWindow.h"
#include "UtilityPanel.h"

namespace ostrel {
namespace {

using Answer = ClaudePermissionAnswer;

HerdrAgent agent(std::int64_t pid) {
  HerdrAgent made;
  made.externalProcess.emplace().pid = pid;
  made.paneID = std::to_string(pid);
  return made;
}

// What agents ask, by their panes.
struct Asked {
  std::map<std::string, std::vector<ClaudePermissionRequest>> claude;
  std::map<std::string, std::vector<CodexRequest>> codex;
  std::set<std::string> sent;
  std::map<std::string, std::string> errors;
  std::vector<Answer> answers;
  std::vector<std::string> results;
  int revealed = 0;

  RequestPorts ports() {
    return {.claude = [this](const HerdrAgent& agent) { return claude[agent.paneID]; },
            .codex = [this](const HerdrAgent& agent) { return codex[agent.paneID]; },
            .controls = [](const HerdrAgent&) { return std::nullopt; },
            .item = [](const CodexRequest&) { return std::nullopt; },
            .isSent = [this](const CodexRequest& request) { return sent.contains(request.id()); },
            .replyError = [this](const CodexRequest& request) { return errors[request.id()]; },
            .answerClaude =
                [this](const ClaudePermissionRequest& request, const Answer& answer) {
                  answers.push_back(answer);
                  for (auto& [pane, all] : claude) std::erase(all, request);
                },
            .answerCodex =
                [this](const CodexRequest& request, std::string result) {
                  results.push_back(std::move(result));
                  sent.insert(request.id());
                },
            .openLink = [](const std::string&) {},
            .terminal = [this](const HerdrAgent&) { return [this] { ++revealed; }; }};
  }
};

ClaudePermissionRequest permission(const std::string& id) {
  return ClaudePermissionRequest::parse(R"({"session_id":"s","tool_name":"Bash"})", id, {}).value();
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

template <class Card>
Card* shown(const RowModel* rows, qsizetype place, std::size_t row = 0) {
  return rows->rows().size() <= row ? nullptr : rows->rows()[row].values[place].value<Card*>();
}

TEST(RequestsBridgeTest, ACardKeepsWhatWasEnteredAndGoesWithItsRequest) {
  Asked asked;
  asked.claude["1"] = {permission("first")};
  RequestsBridge bridge(asked.ports());
  EXPECT_TRUE(bridge.empty());
  bridge.show(agent(1));
  const auto card = [&] { return shown<PermissionCardBridge>(bridge.claude(), 0); };
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
  first->tell();
  ASSERT_TRUE(card() && card() != first);
  EXPECT_EQ(card()->instead(), QString()) << "another request, another card";
  card()->yes();  // the second half of a double click on the first
  EXPECT_EQ(asked.answers, std::vector<Answer>{{Answer::Deny{"use rg"}}});
  asked.claude.clear();
  bridge.refresh();
  EXPECT_TRUE(bridge.empty());
}

TEST(RequestsBridgeTest, CodexIsAnsweredOnce) {
  Asked asked;
  asked.codex["1"] = {questions("1"), questions("2")};
  RequestsBridge bridge(asked.ports());
  bridge.show(agent(1));
  const auto card = [&](std::size_t row) { return shown<CodexCardBridge>(bridge.codex(), 0, row); };
  CodexCardBridge* const second = card(1);
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

TEST(RequestCardsTest, KeysGoThroughTheQuestionsAndEscapeIsLeftToTheWindow) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  QQuickWindow::setGraphicsApi(QSGRendererInterface::Software);
  int count = 1;
  char name[] = "test";
  char* arguments[] = {name, nullptr};
  const QApplication application(count, arguments);
  Asked asked;
  asked.claude["1"] = {question()};
  RequestsBridge bridge(asked.ports());
  bridge.show(agent(1));
  QQmlEngine engine;
  const Appearance appearance(engine);
  QQuickView view(&engine, nullptr);
  loadView(view, QStringLiteral("RequestCards"), bridge);
  view.resize(400, 600);
  view.show();
  view.requestActivate();
  view.rootObject()->setFocus(true);
  QCoreApplication::processEvents();
  ASSERT_TRUE(view.isActive());
  const auto press = [&](int key, const QString& text = {}) {
    QKeyEvent event(QEvent::KeyPress, key, Qt::NoModifier, text);
    QCoreApplication::sendEvent(&view, &event);
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
  EXPECT_TRUE(asked.answers.empty());
  press(Qt::Key_Down);
  press(Qt::Key_Down);
  press(Qt::Key_Return);
  EXPECT_EQ(asked.answers,
            std::vector<Answer>({{Answer::Answers{{{"One?", {"B"}}, {"Many?", {"X", "z"}}}}}}));
  EXPECT_FALSE(view.rootObject()->isVisible());
  EXPECT_EQ(view.rootObject()->implicitHeight(), 0);
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

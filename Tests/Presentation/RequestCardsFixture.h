// What agents ask, made up, and the cards' real view without a display.
#pragma once

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
#include "UtilityPanel.h"

namespace ostrel::requestCards {

inline HerdrAgent agent(std::int64_t pid) {
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

inline RequestAnswer plain(const char* choice) { return {.choice = choice}; }

inline ClaudePermissionRequest permission(const std::string& id, const std::string& input = "{}") {
  return ClaudePermissionRequest::parse(R"({"session_id":"s","tool_name":"Bash","tool_input":)" + input + "}",
                                        id, {})
      .value();
}
inline ClaudePermissionRequest question() {
  return ClaudePermissionRequest::parse(
             R"({"session_id":"s","tool_name":"AskUserQuestion","tool_input":{"questions":[
             {"question":"One?","options":[{"label":"A"},{"label":"B"}]},
             {"question":"Many?","multiSelect":true,"options":[{"label":"X"},{"label":"Y"}]}]}})",
             "q", {})
      .value();
}
inline CodexRequest questions(const std::string& wireID) {
  return {"E", wireID, "t", "item/tool/requestUserInput", R"({"questions":[{"id":"a","question":"?"}]})"};
}

inline CodexRequest command(const std::string& wireID) {
  return {"E", wireID, "t", "item/commandExecution/requestApproval", R"({"command":"ls"})"};
}

template <class Row, class Card>
Card* shown(const ListModel<Row>* rows, Card* Row::* card, std::size_t row = 0) {
  return rows->rows().size() <= row ? nullptr : rows->rows()[row].*card;
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
  bool press(int key, const QString& text = {}, Qt::KeyboardModifiers modifiers = {}, bool repeats = false) {
    QKeyEvent event(QEvent::KeyPress, key, modifiers, text, repeats);
    QCoreApplication::sendEvent(&view_, &event);
    QCoreApplication::processEvents();
    return event.isAccepted();
  }
  void settle() {
    for (int i = 0; i < 5; ++i) QCoreApplication::processEvents();
    view_.grabWindow();  // items find their places as a frame is drawn
    QCoreApplication::processEvents();
  }
  // Until cards that have moved or grown take answers.
  void rest() {
    for (int i = 0; i < 2; ++i) {
      settle();
      loop_.runFor(RequestCard::kSettling);
    }
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

}  // namespace ostrel::requestCards

// The cards above a conversation: what Claude Code or Codex asks there, and the person's answers. Main thread
// only.
//
// A card is made with its request and goes with it, without a word. What was entered in one stays while other
// requests come and go and while another agent is shown.
#pragma once

#include <QObject>
#include <QtQmlIntegration>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "ClaudeCards.h"
#include "Client/OpenRequests.h"
#include "CodexCardBridge.h"
#include "ListModel.h"
#include "Runtime/Task.h"

namespace ostrel {

// What finds the window of an agent's terminal, in the background: what brings it forward, empty where there
// is none.
using FindTerminal = std::function<Task<std::function<void()>>(HerdrAgent)>;

// A card of Claude Code: one of the two.
struct ClaudeCardRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(ostrel::PermissionCardBridge* permission MEMBER permission)
  Q_PROPERTY(ostrel::QuestionCardBridge* question MEMBER question)

 public:
  QString key;  // the request's id
  PermissionCardBridge* permission = nullptr;
  QuestionCardBridge* question = nullptr;
  bool operator==(const ClaudeCardRow&) const = default;
};

// A card of Codex.
struct CodexCardRow {
  Q_GADGET
  Q_PROPERTY(QString key MEMBER key)
  Q_PROPERTY(ostrel::CodexCardBridge* card MEMBER card)

 public:
  QString key;  // the request's id
  CodexCardBridge* card = nullptr;
  bool operator==(const CodexCardRow&) const = default;
};

class RequestsBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowList* claude READ claude CONSTANT)
  Q_PROPERTY(ostrel::RowList* codex READ codex CONSTANT)
  Q_PROPERTY(QString controls READ controls NOTIFY changed)
  Q_PROPERTY(QString controlsError READ controlsError NOTIFY changed)
  Q_PROPERTY(bool connected READ connected NOTIFY changed)
  Q_PROPERTY(bool empty READ empty NOTIFY changed)
  Q_PROPERTY(ostrel::RequestCard* keyCard READ keyCard NOTIFY changed)
  Q_PROPERTY(bool hasTerminal READ hasTerminal NOTIFY changed)
  Q_PROPERTY(bool hasTerminalWindow READ hasTerminalWindow NOTIFY changed)

 public:
  // `source` outlives the bridge. `findTerminal` may be empty.
  RequestsBridge(MainLoop& loop, RequestSource& source, FindTerminal findTerminal);

  // The oldest request of Claude Code, as one row.
  ListModel<ClaudeCardRow>* claude() { return &claude_; }
  // The requests of Codex, in order of arrival.
  ListModel<CodexCardRow>* codex() { return &codex_; }
  QString controls() const;  // empty: not to be shown
  QString controlsError() const;
  bool connected() const { return controls_ && controls_->connected; }
  bool empty() const { return claude_.count() == 0 && codex_.count() == 0 && !controls_; }
  bool hasTerminal() const;
  bool hasTerminalWindow() const { return agent_ && terminal_; }  // another program's, and it is known
  bool asks() const { return claude_.count() + codex_.count() > 0; }
  // The card that letters answer: the first that waits. Null where there is none.
  RequestCard* keyCard() const { return keyCard_; }

  // A pointer on its way over the list opens conversations that nobody reads; their terminals stay
  // unsearched.
  static constexpr Duration kTerminalDelay = std::chrono::milliseconds(400);

  // The agent whose conversation is open. To be called again when its record has changed.
  void show(const std::optional<HerdrAgent>& agent);
  // After a change of what is asked.
  void refresh();

  // All cards have just appeared or moved.
  Q_INVOKABLE void settle();
  // A letter was pressed and no field had the keyboard; false where no card wants it.
  Q_INVOKABLE bool press(const QString& letter) { return keyCard_ && keyCard_->press(letter); }
  // "Answer in terminal", "Show terminal". What is asked stays open.
  Q_INVOKABLE void goToTerminal();

 Q_SIGNALS:
  void changed();
  // The terminal of the shown agent is one that we show ourselves.
  void terminalWanted();

 private:
  void showClaude(const std::vector<const OpenRequest*>& requests);
  void showCodex(const std::vector<const OpenRequest*>& requests);
  void chooseKeyCard();
  void dropEnded();
  void lookForTerminal();
  Task<void> findTerminal(HerdrAgent agent);
  RequestCard::Context context();
  RequestCard* claudeCard(const OpenRequest& request);
  CodexCardBridge* codexCard(const OpenRequest& request);

  MainLoop& loop_;
  RequestSource& source_;
  const FindTerminal findTerminal_;
  std::optional<HerdrAgent> agent_;
  std::map<std::string, HerdrAgent> asking_;            // agents whose cards were shown and are kept, by id
  std::map<std::string, RequestCard*> claudeCards_;     // by the request's id
  std::map<std::string, CodexCardBridge*> codexCards_;  // by the request's id
  ListModel<ClaudeCardRow> claude_;
  ListModel<CodexCardRow> codex_;
  RequestCard* keyCard_ = nullptr;
  std::optional<RequestSource::Controls> controls_;
  std::string terminalOf_;  // the agent whose terminal was looked for
  std::function<void()> terminal_;
  Timer terminalTimer_;
  TaskScope tasks_;
};

}  // namespace ostrel

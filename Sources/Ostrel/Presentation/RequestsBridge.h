// The cards above a conversation: what Claude Code or Codex asks there, and the person's answers. Main thread
// only.
//
// A card is made with its request and goes with it, without a word. What was entered in one stays while other
// requests come and go and while another agent is shown.
#pragma once

#include <QElapsedTimer>
#include <QObject>
#include <QtQmlIntegration>
#include <chrono>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "ClaudeCards.h"
#include "CodexCardBridge.h"
#include "RowModel.h"

namespace ostrel {

class HerdrClient;
class Processes;

// Where requests come from and answers go. `of` is the program's; pictures and tests make up their own.
struct RequestPorts {
  // How the connection for an agent's Codex requests stands.
  struct Controls {
    std::string words;
    std::string error;  // may be empty
    bool connected = false;
  };

  // What is asked in an agent's conversation, oldest first.
  std::function<std::vector<ClaudePermissionRequest>(const HerdrAgent&)> claude;
  std::function<std::vector<CodexRequest>(const HerdrAgent&)> codex;
  // Nothing for an agent whose requests can't come here.
  std::function<std::optional<Controls>(const HerdrAgent&)> controls;
  // Of a request of Codex: what it refers to, as JSON; whether an answer is on its way; why one was not sent.
  std::function<std::optional<std::string>(const CodexRequest&)> item;
  std::function<bool(const CodexRequest&)> isSent;
  std::function<std::string(const CodexRequest&)> replyError;

  std::function<void(const ClaudePermissionRequest&, const ClaudePermissionAnswer&)> answerClaude;
  std::function<void(const CodexRequest&, std::string result)> answerCodex;
  std::function<void(const std::string& link)> openLink;
  // What brings the window of an agent's terminal forward; nothing where it can't be found. May be empty.
  std::function<std::function<void()>(const HerdrAgent&)> terminal;

  static RequestPorts of(HerdrClient& client, Processes& processes,
                         std::function<void(const std::string& link)> openLink);
};

class RequestsBridge final : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_UNCREATABLE("made by the program")
  Q_PROPERTY(ostrel::RowModel* claude READ claude CONSTANT)
  Q_PROPERTY(ostrel::RowModel* codex READ codex CONSTANT)
  Q_PROPERTY(QString controls READ controls NOTIFY changed)
  Q_PROPERTY(QString controlsError READ controlsError NOTIFY changed)
  Q_PROPERTY(bool connected READ connected NOTIFY changed)
  Q_PROPERTY(bool empty READ empty NOTIFY changed)
  Q_PROPERTY(bool hasTerminal READ hasTerminal NOTIFY changed)

 public:
  explicit RequestsBridge(RequestPorts ports);

  // For so long after an answer to Claude Code the next card takes none: it comes up where the first stood,
  // and the second half of a double click would allow what nobody has read.
  static constexpr std::chrono::milliseconds kDoubleClick{500};

  // The oldest request of Claude Code, as one row: the card is one of "permission" and "question".
  RowModel* claude() { return &claude_; }
  // The requests of Codex, in order of arrival.
  RowModel* codex() { return &codex_; }
  QString controls() const;  // empty: not to be shown
  QString controlsError() const;
  bool connected() const { return controls_ && controls_->connected; }
  bool empty() const { return claude_.count() == 0 && codex_.count() == 0 && !controls_; }
  bool hasTerminal() const;

  // The agent whose conversation is open. To be called again when its record has changed.
  void show(const std::optional<HerdrAgent>& agent);
  // After a change of what is asked.
  void refresh();

  // "Answer in terminal". The request stays open.
  Q_INVOKABLE void goToTerminal();

 Q_SIGNALS:
  void changed();
  // The terminal of the shown agent is one that we show ourselves.
  void terminalWanted();

 private:
  void showClaude(const std::vector<ClaudePermissionRequest>& requests);
  void showCodex(const std::vector<CodexRequest>& requests);
  void dropEnded();
  void findTerminal();
  QObject* cardOf(const ClaudePermissionRequest& request);
  CodexCardBridge* cardOf(const CodexRequest& request);

  const RequestPorts ports_;
  std::optional<HerdrAgent> agent_;
  std::map<std::string, HerdrAgent> asking_;            // agents whose cards were shown and are kept, by id
  std::map<std::string, QObject*> claudeCards_;         // by the request's id
  std::map<std::string, CodexCardBridge*> codexCards_;  // by the request's key
  RowModel claude_{{"permission", "question"}};
  RowModel codex_{{"card"}};
  std::optional<RequestPorts::Controls> controls_;
  std::string terminalOf_;  // the agent whose terminal was looked for
  std::function<void()> terminal_;
  QElapsedTimer answered_;
};

}  // namespace ostrel

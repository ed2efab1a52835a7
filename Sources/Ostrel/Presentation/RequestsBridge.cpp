#include "RequestsBridge.h"

#include <utility>

#include "Client/HerdrClient.h"
#include "TerminalWindow.h"
#include "Words.h"

namespace ostrel {

namespace {

// Ends cards whose requests are over. Their views may still be at work with them.
template <class Card>
void dropAllBut(const std::set<std::string>& open, std::map<std::string, Card*>& cards) {
  std::erase_if(cards, [&](const auto& entry) {
    if (open.contains(entry.first)) return false;
    entry.second->deleteLater();
    return true;
  });
}

}  // namespace

RequestPorts RequestPorts::of(HerdrClient& client, Processes& processes,
                              std::function<void(const std::string& link)> openLink) {
  CodexRequestController& codex = client.codexRequests();
  return {.claude = [&client](const HerdrAgent& agent) { return client.permissionRequests(agent); },
          .codex = [&client](const HerdrAgent& agent) { return client.codexRequests(agent); },
          .controls = [&client](const HerdrAgent& agent) -> std::optional<Controls> {
            const auto asked = client.codexRequests(agent);
            if (!client.asksCodex() || (asked.empty() && !agent.isCodexLive())) return std::nullopt;
            const std::string thread = agent.isCodexLive() ? agent.paneID : asked.front().threadID;
            CodexRequestController& requests = client.codexRequests();
            return Controls{requests.status(thread), requests.error()->value_or(""),
                            requests.connectedThreads()->contains(thread)};
          },
          .item = [&codex](const CodexRequest& request) -> std::optional<std::string> {
            const auto key = CodexCard::itemKey(request);
            const auto found = key ? codex.details().find(*key) : codex.details().end();
            return found == codex.details().end() ? std::nullopt : std::optional(found->second);
          },
          .isSent = [&codex](const CodexRequest& request) { return codex.sent()->contains(request.id()); },
          .replyError =
              [&codex](const CodexRequest& request) {
                const auto found = codex.replyErrors()->find(request.id());
                return found == codex.replyErrors()->end() ? std::string() : found->second;
              },
          .answerClaude =
              [&client](const ClaudePermissionRequest& request, const ClaudePermissionAnswer& answer) {
                client.permissions().answer(request, answer);
              },
          .answerCodex = [&codex](const CodexRequest& request,
                                  std::string result) { codex.answer(request, std::move(result)); },
          .openLink = std::move(openLink),
          .terminal = [&processes](const HerdrAgent& agent) { return TerminalWindow::of(agent, processes); }};
}

RequestsBridge::RequestsBridge(RequestPorts ports) : ports_(std::move(ports)) {}

QString RequestsBridge::controls() const { return controls_ ? words::of(controls_->words) : QString(); }

QString RequestsBridge::controlsError() const { return controls_ ? words::of(controls_->error) : QString(); }

bool RequestsBridge::hasTerminal() const {
  // What has no process here is a pane, whose terminal we show.
  return agent_ && (terminal_ || (!agent_->isExternal() && !agent_->isCodexLive()));
}

void RequestsBridge::show(const std::optional<HerdrAgent>& agent) {
  agent_ = agent;
  refresh();
}

void RequestsBridge::refresh() {
  if (agent_) {
    showClaude(ports_.claude(*agent_));
    showCodex(ports_.codex(*agent_));
    controls_ = ports_.controls(*agent_);
    if (claude_.count() + codex_.count() > 0) asking_.insert_or_assign(agent_->id(), *agent_);
    if (claude_.count() > 0) findTerminal();
  } else {
    claude_.set({});
    codex_.set({});
    controls_.reset();
  }
  dropEnded();
  Q_EMIT changed();
}

void RequestsBridge::goToTerminal() {
  if (terminal_) {
    terminal_();
  } else {
    Q_EMIT terminalWanted();
  }
}

void RequestsBridge::showClaude(const std::vector<ClaudePermissionRequest>& requests) {
  if (requests.empty()) {
    claude_.set({});
    return;
  }
  QObject* const card = cardOf(requests.front());
  claude_.set({{words::of(requests.front().id),
                {QVariant::fromValue(qobject_cast<PermissionCardBridge*>(card)),
                 QVariant::fromValue(qobject_cast<QuestionCardBridge*>(card))}}});
}

void RequestsBridge::showCodex(const std::vector<CodexRequest>& requests) {
  std::vector<Row> rows;
  for (const CodexRequest& request : requests) {
    CodexCardBridge* const card = cardOf(request);
    card->show(ports_.item(request), ports_.isSent(request), ports_.replyError(request));
    rows.push_back({words::of(request.id()), {QVariant::fromValue(card)}});
  }
  codex_.set(rows);
}

void RequestsBridge::dropEnded() {
  std::set<std::string> open;
  std::erase_if(asking_, [&](const auto& entry) {
    const auto claude = ports_.claude(entry.second);
    const auto codex = ports_.codex(entry.second);
    for (const auto& request : claude) open.insert(request.id);
    for (const auto& request : codex) open.insert(request.id());
    return claude.empty() && codex.empty();
  });
  dropAllBut(open, claudeCards_);
  dropAllBut(open, codexCards_);
}

void RequestsBridge::findTerminal() {
  if (std::exchange(terminalOf_, agent_->id()) == agent_->id()) return;
  terminal_ = ports_.terminal && agent_->isExternal() ? ports_.terminal(*agent_) : nullptr;
}

QObject* RequestsBridge::cardOf(const ClaudePermissionRequest& request) {
  QObject*& card = claudeCards_[request.id];
  if (card) return card;
  const auto give = [this](const ClaudePermissionRequest& asked, const ClaudePermissionAnswer& answer) {
    if (answered_.isValid() && !answered_.hasExpired(kDoubleClick.count())) return;
    answered_.start();
    ports_.answerClaude(asked, answer);
    refresh();
  };
  if (request.questions.empty()) {
    card = new PermissionCardBridge(request, give, this);
  } else {
    card = new QuestionCardBridge(request, give, this);
  }
  return card;
}

CodexCardBridge* RequestsBridge::cardOf(const CodexRequest& request) {
  CodexCardBridge*& card = codexCards_[request.id()];
  if (card && card->request() == request) return card;
  // The server may ask something else under the same number.
  if (card) card->deleteLater();
  card = new CodexCardBridge(request,
                             {[this](const CodexRequest& asked, std::string result) {
                                ports_.answerCodex(asked, std::move(result));
                                refresh();
                              },
                              ports_.openLink},
                             this);
  return card;
}

}  // namespace ostrel

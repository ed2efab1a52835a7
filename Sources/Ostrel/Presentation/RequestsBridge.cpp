#include "RequestsBridge.h"

#include <utility>

#include "Client/RequestHeading.h"
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

RequestsBridge::RequestsBridge(MainLoop& loop, RequestSource& source, FindTerminal findTerminal)
    : loop_(loop), source_(source), findTerminal_(std::move(findTerminal)), tasks_(loop) {}

QString RequestsBridge::controls() const { return controls_ ? words::of(controls_->words) : QString(); }

QString RequestsBridge::controlsError() const { return controls_ ? words::of(controls_->error) : QString(); }

bool RequestsBridge::hasTerminal() const {
  // What has no process here is a pane, whose terminal we show.
  return agent_ && (terminal_ || (!agent_->isExternal() && !agent_->isCodexLive()));
}

void RequestsBridge::show(const std::optional<HerdrAgent>& agent) {
  const bool another = !agent || !agent_ || agent->id() != agent_->id();
  agent_ = agent;
  refresh();
  if (another) settle();
}

void RequestsBridge::settle() {
  for (const auto& [id, card] : claudeCards_) card->settle();
  for (const auto& [id, card] : codexCards_) card->settle();
}

void RequestsBridge::refresh() {
  std::vector<OpenRequest> open;
  if (agent_) open = source_.of(*agent_);
  std::vector<const OpenRequest*> claude, codex;
  for (const OpenRequest& request : open) (request.claude() ? claude : codex).push_back(&request);
  showClaude(claude);
  showCodex(codex);
  controls_ = agent_ ? source_.controls(*agent_) : std::nullopt;
  if (!open.empty()) asking_.insert_or_assign(agent_->id(), *agent_);
  if (agent_) lookForTerminal();
  chooseKeyCard();
  dropEnded();
  Q_EMIT changed();
}

void RequestsBridge::chooseKeyCard() {
  RequestCard* first = nullptr;
  for (const ClaudeCardRow& row : claude_.rows()) {
    first = row.permission ? static_cast<RequestCard*>(row.permission) : row.question;
  }
  for (const CodexCardRow& row : codex_.rows()) {
    if (!first && row.card->waits()) first = row.card;
  }
  // A letter that was pressed twice must not answer the next one.
  if (std::exchange(keyCard_, first) != first && first) first->settle();
}

void RequestsBridge::goToTerminal() {
  if (terminal_) {
    terminal_();
  } else {
    Q_EMIT terminalWanted();
  }
}

void RequestsBridge::showClaude(const std::vector<const OpenRequest*>& requests) {
  if (requests.empty()) {
    claude_.set({});
    return;
  }
  RequestCard* const card = claudeCard(*requests.front());
  card->setHeading(words::shown(requestHeading(*requests.front(), *agent_)));
  claude_.set({{words::of(requests.front()->id), qobject_cast<PermissionCardBridge*>(card),
                qobject_cast<QuestionCardBridge*>(card)}});
}

void RequestsBridge::showCodex(const std::vector<const OpenRequest*>& requests) {
  std::vector<CodexCardRow> rows;
  for (const OpenRequest* const request : requests) {
    CodexCardBridge* const card = codexCard(*request);
    card->show(*request->codex());
    card->setHeading(words::shown(requestHeading(*request, *agent_)));
    rows.push_back({words::of(request->id), card});
  }
  codex_.set(std::move(rows));
}

void RequestsBridge::dropEnded() {
  std::set<std::string> open;
  std::erase_if(asking_, [&](const auto& entry) {
    const auto requests = source_.of(entry.second);
    for (const OpenRequest& request : requests) open.insert(request.id);
    return requests.empty();
  });
  dropAllBut(open, claudeCards_);
  dropAllBut(open, codexCards_);
}

void RequestsBridge::lookForTerminal() {
  if (std::exchange(terminalOf_, agent_->id()) == agent_->id()) return;
  terminal_ = nullptr;
  terminalTimer_.reset();
  tasks_.cancel();
  if (!findTerminal_ || !agent_->isExternal()) return;
  terminalTimer_ =
      loop_.after(kTerminalDelay, [this, agent = *agent_] { tasks_.start(findTerminal(agent)); });
}

Task<void> RequestsBridge::findTerminal(HerdrAgent agent) {
  std::function<void()> terminal = co_await findTerminal_(std::move(agent));
  terminal_ = std::move(terminal);
  Q_EMIT changed();
}

RequestCard::Context RequestsBridge::context() {
  return {loop_, [this](const std::string& request, const RequestAnswer& answer) {
            source_.answer(request, answer);
            refresh();
          }};
}

RequestCard* RequestsBridge::claudeCard(const OpenRequest& request) {
  RequestCard*& card = claudeCards_[request.id];
  if (card) return card;
  if (request.claude()->questions.empty()) {
    card = new PermissionCardBridge(*request.claude(), context(), this);
  } else {
    card = new QuestionCardBridge(*request.claude(), context(), this);
  }
  return card;
}

CodexCardBridge* RequestsBridge::codexCard(const OpenRequest& request) {
  CodexCardBridge*& card = codexCards_[request.id];
  if (card) return card;
  const auto open = [this, id = request.id] {
    source_.openLink(id);
    refresh();
  };
  card = new CodexCardBridge(request, context(), open, this);
  return card;
}

}  // namespace ostrel

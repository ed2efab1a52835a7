#include "ConversationBridge.h"

#include <QClipboard>
#include <QCursor>
#include <QFileDialog>
#include <QGuiApplication>
#include <QUrl>
#include <algorithm>
#include <iterator>
#include <system_error>
#include <utility>

#include "App/FilePaths.h"
#include "Client/AgentLabels.h"
#include "Client/SelectedAgent.h"
#include "MessageText.h"
#include "Platform/Processes.h"
#include "Runtime/Failure.h"
#include "Words.h"

namespace ostrel {

namespace {

constexpr Duration kMessageTime = std::chrono::seconds(5);

QString joined(QStringList pieces) {
  pieces.removeAll(QString());
  return pieces.join(QStringLiteral(" · "));
}

// What may be opened for a link that stands in a conversation: the web, mail, and files.
std::string addressOf(const std::string& link, const std::filesystem::path& folder,
                      const std::filesystem::path& home) {
  const QUrl url(words::of(link));
  const QString scheme = url.scheme().toLower();
  if (scheme == QStringLiteral("http") || scheme == QStringLiteral("https") ||
      scheme == QStringLiteral("mailto"))
    return url.toEncoded().toStdString();
  const QString prefix = QString::fromUtf16(MessageText::kPathScheme);
  std::string path =
      words::of(link).startsWith(prefix) ? words::of(link).mid(prefix.size()).toStdString() : link;
  if (scheme == QStringLiteral("file")) path = url.toLocalFile().toStdString();
  const std::filesystem::path file = resolvePath(path, folder, home);
  std::error_code error;
  const auto kind = std::filesystem::status(file, error).type();
  if (file.empty() || error || kind == std::filesystem::file_type::not_found)
    throw Failure("There is no file " + path + ".");
  // Opening a program's entry could start it, and nobody opens a pipe or a device.
  const bool shown = kind == std::filesystem::file_type::directory ||
                     (kind == std::filesystem::file_type::regular && file.extension() != ".desktop");
  const std::filesystem::path target = shown ? file : file.parent_path();
  return QUrl::fromLocalFile(words::of(target.string())).toEncoded().toStdString();
}

}  // namespace

ConversationBridge::ConversationBridge(MainLoop& loop, Background& pool, BridgeParts parts,
                                       ConversationParts sources, FindTerminal findTerminal)
    : pool_(pool),
      parts_(std::move(parts)),
      sources_(std::move(sources)),
      requests_(loop, sources_.requests, std::move(findTerminal)),
      loop_(loop),
      throttle_(loop, LitAgents::kDelivery, [this] { refresh(std::exchange(wanted_, 0)); }),
      tasks_(loop) {
  const SelectedConversation& shown = sources_.open.shown();
  subscriptions_ = shown.observeConversation([this] { wantRefresh(kWords); });
  std::ranges::move(shown.observeOutput([this] { wantRefresh(kScreen); }),
                    std::back_inserter(subscriptions_));
  subscriptions_.push_back(shown.transcript.observe([this] { stale_ = true; }));
  subscriptions_.push_back(parts_.model.observe([this] { wantRefresh(kAgent); }));
  subscriptions_.push_back(sources_.open.observe([this] { wantRefresh(kEverything); }));
  subscriptions_.push_back(sources_.requests.observe([this] { wantRefresh(kAsked); }));
  // Somebody waits for the first words of what they opened; the next ones may wait for the throttle.
  subscriptions_.push_back(shown.transcript.observe([this] {
    if (blocks_.empty()) firstWords_ = loop_.after({}, [this] { refresh(kWords); });
  }));
  connect(&requests_, &RequestsBridge::terminalWanted, this, [this] { setShowsTerminal(true); });
}

void ConversationBridge::show(const HerdrAgent& agent) {
  const bool another = !agent_ || agent_->id() != agent.id();
  agent_ = agent;
  followed_ = true;
  if (another) {
    showsTerminal_ = hasTerminal() && !SelectedAgent::hasHistory(agent);
    find({});
    say({});
    forget();
  }
  refresh();
  if (another) Q_EMIT shownAgent();
}

// Of an agent that goes in the moment it is opened nothing is known; the last one's must not stand for it.
void ConversationBridge::forget() {
  blocks_.clear();
  stale_ = true;
  rows_.set({});
  session_.clear();
  notice_.clear();
  loading_ = false;
  showOutput({}, {}, false);
}

QString ConversationBridge::speaker() const { return agent_ ? words::provider(*agent_) : QString(); }

bool ConversationBridge::hasTerminal() const {
  return agent_ && !agent_->isExternal() && !agent_->isCodexLive();
}

bool ConversationBridge::linkable() const {
  return agent_ && !ended_ && !sources_.actions.refusal(AgentAction::link, agent_->id());
}

bool ConversationBridge::linked() const {
  return agent_ && !ended_ && !sources_.actions.refusal(AgentAction::unlink, agent_->id());
}

void ConversationBridge::wantRefresh(unsigned concerns) {
  wanted_ |= concerns;
  if (followed_) throttle_.request();
}

void ConversationBridge::refresh(unsigned concerns) {
  if (!followed_) return;
  const auto selected = sources_.open.agent();
  if (concerns & (kAgent | kAsked)) refreshAgent(selected);
  if (selected && (concerns & kWords)) refreshWords();
  if (selected && (concerns & kScreen)) {
    const SelectedConversation& shown = sources_.open.shown();
    showOutput(words::of(*shown.output), words::of(shown.outputError->value_or("")), *shown.hasLoadedOutput);
  }
  if (concerns & (kAgent | kAsked | kWords)) Q_EMIT changed();
}

void ConversationBridge::refreshAgent(const std::optional<HerdrAgent>& selected) {
  const auto found = parts_.model.find(agent_->id());
  ended_ = !found && !selected;
  if (found) agent_ = found->agent();
  // What is open may be another record than the row's: a Codex process is shown by its loaded thread.
  const HerdrAgent open = selected ? *selected : *agent_;
  requests_.show(ended_ ? std::nullopt : std::optional(open));
  if (!requests_.asks()) parts_.edge.setAgentRoom(0);
  // A card may stand before the agent's own light tells of it.
  const bool asks = requests_.keyCard() != nullptr;
  light_ = ended_ ? AgentLight::idle : asks ? AgentLight::needsYou : parts_.model.light(open);
  title_ = words::shown(agent_->displayTitle(parts_.preferences));
  status_ = ended_ ? QStringLiteral("Ended")
                   : words::of(asks ? agentLabels::kNeedsAnswer : sources_.open.statusLabel(open));
  details_ =
      joined({words::provider(*agent_), words::shown(oneLine(agent_->projectLabel())), words::host(*agent_)});
}

void ConversationBridge::refreshWords() {
  const SelectedConversation& shown = sources_.open.shown();
  const AgentSessionDetails& session = *shown.sessionDetails;
  session_ = joined({words::shown(session.branch.value_or("")), words::shown(session.model.value_or("")),
                     words::shown(session.effort.value_or(""))});
  loading_ = *shown.loadingHistory;
  notice_ = words::of(shown.transcriptNotice->value_or(""));
  if (std::exchange(stale_, false)) refreshBlocks();
}

void ConversationBridge::refreshBlocks() {
  const SelectedConversation& shown = sources_.open.shown();
  std::vector<ConversationBlock> blocks = conversationBlocks(*shown.transcript, showsActivity_);
  if (blocks == blocks_) return;
  blocks_ = std::move(blocks);
  if (!findText_.isEmpty()) {
    found_ = findInConversation(blocks_, findText_.toStdString());
    findPlace_ = std::min(findPlace_, findCount() - 1);
    Q_EMIT findChanged();
  }
  refreshRows();
}

void ConversationBridge::showOutput(const QString& output, const QString& error, bool loaded) {
  if (output == output_ && error == outputError_ && loaded == outputLoaded_) return;
  output_ = output;
  outputError_ = error;
  outputLoaded_ = loaded;
  Q_EMIT outputChanged();
}

void ConversationBridge::refreshRows() {
  rows_.set(conversationRows(blocks_, speaker(), found_, findPlace_));
}

void ConversationBridge::setShowsTerminal(bool shows) {
  if (shows == showsTerminal_) return;
  showsTerminal_ = shows;
  Q_EMIT changed();
}

void ConversationBridge::setShowsActivity(bool shows) {
  if (shows == showsActivity_) return;
  showsActivity_ = shows;
  stale_ = true;
  refresh();
}

void ConversationBridge::menuShown(bool shown) {
  if (shown) {
    parts_.edge.menuOpened();
  } else {
    parts_.edge.menuClosed();
  }
}

void ConversationBridge::rename(const QString& title) {
  if (!agent_) return;
  act([&] { sources_.actions.rename(agent_->id(), title.toStdString()); });
}

// What is refused is said.
void ConversationBridge::act(const std::function<void()>& action) {
  try {
    action();
  } catch (const Failure& failure) {
    say(words::of(failure.message()));
  }
  refresh();
}

void ConversationBridge::chooseConversation() {
  if (!linkable()) return;
  auto* const dialog = new QFileDialog(nullptr, QStringLiteral("Link this agent’s conversation"),
                                       words::of((sources_.home / ".claude/projects").string()),
                                       QStringLiteral("Conversations (*.jsonl)"));
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setFileMode(QFileDialog::ExistingFile);
  dialog->setLabelText(QFileDialog::LookIn,
                       QStringLiteral("Choose the exact session JSONL file for this terminal."));
  dialog->setLabelText(QFileDialog::Accept, QStringLiteral("Link"));
  dialog->setFilter(dialog->filter() | QDir::Hidden);  // the agents' own folders are
  dialog->setWindowFlag(Qt::WindowStaysOnTopHint);     // as the windows that it belongs to
  dialog->setModal(true);
  connect(dialog, &QFileDialog::fileSelected, this, [this, id = agent_->id()](const QString& file) {
    act([&] { sources_.actions.link(id, file.toStdString()); });
  });
  dialog->show();
}

void ConversationBridge::unlink() {
  if (agent_) act([&] { sources_.actions.unlink(agent_->id()); });
}

void ConversationBridge::openLink(const QString& link) { tasks_.start(open(link.toStdString())); }

Task<void> ConversationBridge::open(std::string link) {
  const std::filesystem::path folder = agent_ ? agent_->context : std::string();
  try {
    co_await pool_.run([link = std::move(link), folder, home = sources_.home, &urls = sources_.urls](
                           std::stop_token) { urls.open(addressOf(link, folder, home)); });
  } catch (const Failure& failure) {
    say(words::of(failure.message()));
  }
}

void ConversationBridge::copy(const QString& text) {
  QGuiApplication::clipboard()->setText(text);
  say(QStringLiteral("Copied."));
}

void ConversationBridge::copyMessage(const QString& key) {
  const auto block = std::ranges::find(blocks_, key.toStdString(), &ConversationBlock::key);
  if (block == blocks_.end()) return;
  for (const AgentTranscriptMessage& message : *sources_.open.shown().transcript) {
    if (message.id != block->message) continue;
    copy(words::of(message.text));
    return;
  }
  // The agent has ended: what is shown is all there is.
  QStringList texts;
  for (const ConversationBlock& each : blocks_) {
    if (each.message == block->message) texts.append(words::of(each.text));
  }
  copy(texts.join(QStringLiteral("\n\n")));
}

void ConversationBridge::copyConversation() {
  copy(words::of(conversationText(*sources_.open.shown().transcript, speaker().toStdString())));
}

void ConversationBridge::beginResize() {
  resizeFrom_ = QCursor::pos();
  resizeSize_ = parts_.edge.agentSize();
}

void ConversationBridge::resize() {
  const QPoint moved = QCursor::pos() - resizeFrom_;
  parts_.edge.resizeAgent({resizeSize_.width - moved.x(), resizeSize_.height + moved.y()});
}

void ConversationBridge::find(const QString& text) {
  if (text == findText_) return;
  findText_ = text;
  found_ = findInConversation(blocks_, text.toStdString());
  findPlace_ = findCount() - 1;  // the last thing said comes first
  refreshRows();
  Q_EMIT findChanged();
  if (findPlace_ >= 0) Q_EMIT wanted(static_cast<int>(found_[static_cast<std::size_t>(findPlace_)]));
}

void ConversationBridge::findNext(bool forward) {
  if (found_.empty()) return;
  findPlace_ = (findPlace_ + (forward ? 1 : findCount() - 1)) % findCount();
  refreshRows();
  Q_EMIT findChanged();
  Q_EMIT wanted(static_cast<int>(found_[static_cast<std::size_t>(findPlace_)]));
}

void ConversationBridge::say(QString words) {
  messageTimer_.reset();
  if (!words.isEmpty()) messageTimer_ = loop_.after(kMessageTime, [this] { say({}); });
  if (words == message_) return;
  message_ = std::move(words);
  Q_EMIT messageChanged();
}

}  // namespace ostrel

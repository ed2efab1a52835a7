#include "Client/SelectedAgent.h"

#include <utility>

#include "Client/ConversationLinks.h"
#include "Herdr/HerdrProtocol.h"
#include "Herdr/HerdrProviders.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kLook = 1s;
constexpr Duration kSocketLook =
    500ms;  // a command starts a process, a look over the socket costs next to nothing

}  // namespace

SelectedAgent::SelectedAgent(MainLoop& loop, Parts parts) : parts_(parts), history_(loop), following_(loop) {}

bool SelectedAgent::hasHistory(const HerdrAgent& agent) {
  if (agent.isRemote()) return false;
  const HerdrProvider* const provider = HerdrProvider::find(agent.provider);
  if (provider && (provider->id == "codex" || provider->id == "claude")) return true;
  return agent.isExternal() || agent.isCodexLive();
}

void SelectedAgent::open(const HerdrAgent& agent) {
  std::string key = historyKey(agent, parts_.preferences);
  if (openID_ == agent.id() && openKey_ == key && following_.running() > 0) return;
  history_.cancel();
  following_.cancel();
  nowLoading({});
  openID_ = agent.id();
  openKey_ = std::move(key);
  showHistory(openKey_);
  shown_.transcriptNotice.set(std::nullopt);
  const std::string* const output = outputs_.find(openKey_);
  shown_.output.set(output ? *output : std::string());
  shown_.hasLoadedOutput.set(output != nullptr);
  shown_.outputError.set(std::nullopt);
  if (agent.isExternal() || agent.isCodexLive()) {
    following_.start(followHistory(openID_));
  } else {
    following_.start(followPane(agent));
  }
}

void SelectedAgent::close(bool forget) {
  history_.cancel();
  following_.cancel();
  nowLoading({});
  openID_.clear();
  openKey_.clear();
  displayedKey_.clear();
  shown_.transcript.set({});
  shown_.sessionDetails.set({});
  shown_.transcriptNotice.set(std::nullopt);
  shown_.output.set({});
  shown_.hasLoadedOutput.set(false);
  shown_.outputError.set(std::nullopt);
  if (!forget) return;
  histories_.clear();
  outputs_.clear();
}

void SelectedAgent::nowLoading(std::string key) {
  inFlight_ = std::move(key);
  shown_.loadingHistory.set(!inFlight_.empty() && shown_.transcript->empty() && !*shown_.transcriptNotice);
}

void SelectedAgent::showHistory(const std::string& key) {
  displayedKey_ = key;
  const AgentTranscriptSnapshot* const known = histories_.find(key);
  shown_.transcript.set(known ? known->messages : std::vector<AgentTranscriptMessage>());
  shown_.sessionDetails.set(known ? known->details : AgentSessionDetails());
}

void SelectedAgent::refreshHistory(const HerdrAgent& agent) {
  if (!hasHistory(agent)) {
    displayedKey_.clear();
    shown_.transcript.set({});
    shown_.sessionDetails.set({});
    shown_.transcriptNotice.set(
        "Use the interactive terminal for this provider’s full conversation and controls.");
    return;
  }
  const std::string key = historyKey(agent, parts_.preferences);
  if (agent.id() == openID_ && displayedKey_ != key) showHistory(key);
  if (inFlight_ == key) return;
  history_.cancel();
  nowLoading({});
  const auto link = linkedReference(agent, parts_.preferences);
  if (agent.isExternal() && !link) {
    shown_.transcriptNotice.set(
        "This terminal has not reported its conversation identity. Choose Link exact conversation to view "
        "its "
        "history.");
    return;
  }
  nowLoading(key);
  history_.start(loadHistory(key, link ? std::optional(link->reference) : std::nullopt,
                             link ? link->kind : std::nullopt, agent.provider));
}

// Cancelled when the agent or its link changes: what comes back is always for the key in flight.
Task<void> SelectedAgent::loadHistory(std::string key, std::optional<std::string> reference,
                                      std::optional<std::string> kind, std::string provider) {
  try {
    AgentTranscriptSnapshot snapshot =
        co_await parts_.transcripts->load(std::move(reference), std::move(kind), std::move(provider));
    nowLoading({});
    if (snapshot.messages.empty()) {
      shown_.transcriptNotice.set("No conversation messages available yet.");
      // A file that is being replaced can be empty for a moment: that is no reason to blank what is read.
      if (!shown_.transcript->empty()) co_return;
    } else {
      shown_.transcriptNotice.set(std::nullopt);
    }
    shown_.sessionDetails.set(snapshot.details);
    if (snapshot.messages != *shown_.transcript) shown_.transcript.set(snapshot.messages);
    histories_.put(key, std::move(snapshot));
  } catch (const Failure& failure) {
    nowLoading({});
    shown_.transcriptNotice.set(failure.message());
  }
}

Task<void> SelectedAgent::followHistory(std::string id) {
  for (;;) {
    const HerdrAgent* const record = parts_.inventory.reported(id);
    if (!record) co_return;
    refreshHistory(*record);
    co_await sleepFor(kLook);
  }
}

Task<void> SelectedAgent::followPane(HerdrAgent agent) {
  for (;;) {
    const HerdrAgent* const listed = parts_.inventory.reported(openID_);
    if (!listed || listed->terminalID != agent.terminalID) co_return;
    const HerdrAgent record = *listed;  // the list may change while the pane is read
    refreshHistory(record);
    const std::string key = historyKey(record, parts_.preferences);
    const bool overSocket = parts_.link.hasSocket(record);
    std::optional<std::string> problem;
    try {
      std::string text = co_await parts_.link.screen(record);
      outputs_.put(key, text);
      shown_.output.set(std::move(text));
      shown_.hasLoadedOutput.set(true);
    } catch (const HerdrProtocol::Refusal& refusal) {
      problem = refusal.message();
      // A pane that has gone takes its row along.
      if (refusal.isNotFound() && !record.isRemote()) parts_.link.refresh(record.session);
    } catch (const Failure& failure) {
      problem = failure.message();
    }
    shown_.outputError.set(std::move(problem));
    co_await sleepFor(overSocket ? kSocketLook : kLook);
  }
}

}  // namespace ostrel

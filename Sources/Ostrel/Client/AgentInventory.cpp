#include "Client/AgentInventory.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "Client/CodexTies.h"
#include "Client/ConversationLinks.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

using Entry = AgentList::Entry;

bool hasCodexThread(const ListedAgent& listed) {
  return listed.conversation && listed.agent.provider == "codex";
}

// A set of conversations, each told apart by its provider. Filled once, so open addressing does.
class Conversations {
 public:
  explicit Conversations(std::size_t most) {
    while (slots_.size() < most * 2) slots_.resize(slots_.size() * 2);
  }

  // The record that is in the set for the same conversation already; null when this one is now.
  const ListedAgent* insert(const ListedAgent& listed) {
    const std::size_t mask = slots_.size() - 1;
    for (std::size_t at = std::hash<std::string_view>()(*listed.conversation) & mask;; at = (at + 1) & mask) {
      if (!slots_[at]) {
        slots_[at] = &listed;
        return nullptr;
      }
      if (*slots_[at]->conversation == *listed.conversation &&
          sameProvider(slots_[at]->agent.provider, listed.agent.provider))
        return slots_[at];
    }
  }

 private:
  static bool sameProvider(std::string_view one, std::string_view other) {
    return one == other || text::lowercase(one) == text::lowercase(other);
  }

  std::vector<const ListedAgent*> slots_ = std::vector<const ListedAgent*>(16);
};

// A thread that works or waits is shown, and so is one that has done so before our eyes: it has finished.
bool hasWorked(const HerdrAgent& thread) {
  return thread.state == AgentState::working || thread.state == AgentState::blocked || thread.since;
}

// A terminal that is not shown may be the one that asks: its state counts for the row.
void raise(HerdrAgent& shown, const HerdrAgent& hidden) {
  const auto more = hidden.state <=> shown.state;
  if (more > 0) shown.state = hidden.state;
  if (more > 0 || (more == 0 && shown.since && hidden.since > shown.since)) shown.since = hidden.since;
}

constexpr auto kByID = [](const Entry& one, const Entry& other) { return one->id < other->id; };

}  // namespace

void AgentInventory::changed(Source source, const std::vector<HerdrAgent>& agents) {
  of(source).reported = &agents;
  merged_.reset();
}

void AgentInventory::preferencesChanged() {
  for (Records& records : records_) {
    for (Entry& entry : records.listed) entry = listed(entry->agent);
  }
  merged_.reset();
}

void AgentInventory::formsChanged(const std::set<std::string>& conversations) {
  forms_ = conversations;
  merged_.reset();
}

std::optional<AgentState> AgentInventory::reportedState(std::string_view conversation) {
  merged();
  std::optional<AgentState> most;
  for (const Source source : {Source::herdr, Source::external, Source::codex}) {
    for (const Entry& entry : of(source).listed) {
      if (entry->conversation != conversation) continue;
      most = std::max(most.value_or(AgentState::unknown), entry->agent.state);
    }
  }
  return most;
}

bool AgentInventory::showsForm(const ListedAgent& listed) const {
  return listed.conversation && forms_.contains(*listed.conversation) && !listed.agent.isRemote() &&
         listed.agent.knownProvider() == AgentProvider::claude;
}

const Inventory& AgentInventory::merged() {
  if (!merged_) merge();
  return *merged_;
}

const HerdrAgent* AgentInventory::find(std::string_view id) {
  for (const Entry& entry : merged().all.entries()) {
    if (entry->id == id) return &entry->agent;
  }
  return nullptr;
}

const HerdrAgent* AgentInventory::reported(std::string_view id) {
  merged();  // takes over what was reported
  for (const Source source : {Source::herdr, Source::remote}) {
    for (const Entry& entry : of(source).listed) {
      if (entry->id == id) return &entry->agent;
    }
  }
  return find(id);
}

AgentList::Entry AgentInventory::listed(const HerdrAgent& agent) const {
  return std::make_shared<ListedAgent>(agent, linkedConversation(agent, preferences_));
}

// Records that stayed as they were keep their place in memory, and where no id moved the order stands too.
void AgentInventory::takeOver(Records& records) {
  if (!records.reported) return;
  const std::vector<HerdrAgent>& reported = *std::exchange(records.reported, nullptr);
  const Entries old = std::exchange(records.listed, {});
  records.listed.reserve(reported.size());
  bool moved = old.size() != reported.size();
  std::size_t next = 0;
  for (const HerdrAgent& agent : reported) {
    // The next old record, or the one after it where one has gone.
    std::size_t same = next;
    while (same < old.size() && same < next + 2 && old[same]->agent != agent) ++same;
    if (same < old.size() && same < next + 2) {
      moved |= same != next;
      records.listed.push_back(old[same]);
      next = same + 1;
      continue;
    }
    Entry fresh = listed(agent);
    if (next < old.size() && old[next]->id == fresh->id) {
      ++next;
    } else {
      moved = true;
    }
    records.listed.push_back(std::move(fresh));
  }
  if (!moved) return;
  records.sorted.resize(records.listed.size());
  std::iota(records.sorted.begin(), records.sorted.end(), 0U);
  std::ranges::sort(records.sorted, {}, [&](std::uint32_t at) {
    return std::pair(std::string_view(records.listed[at]->id), at);
  });
}

// Which Codex threads are known from a pane or a process.
void AgentInventory::matchThreads() {
  const Entries& codex = of(Source::codex).listed;
  threads_.assign(codex.size(), {});
  tied_.assign(of(Source::external).listed.size(), false);
  threadsByID_.clear();
  for (std::uint32_t i = 0; i < codex.size(); ++i) threadsByID_.try_emplace(codex[i]->agent.paneID, i);
  if (codex.empty()) return;
  for (const Source source : {Source::herdr, Source::external}) {
    const Entries& listed = of(source).listed;
    for (std::uint32_t i = 0; i < listed.size(); ++i) {
      if (!hasCodexThread(*listed[i])) continue;
      const auto thread = threadsByID_.find(*listed[i]->conversation);
      if (thread == threadsByID_.end()) continue;
      threads_[thread->second].linked = true;
      Thread& known = threads_[thread->second];
      std::uint32_t& first = source == Source::herdr ? known.pane : known.terminal;
      if (first == kNone) first = i;
    }
  }
  matchTerminals();
}

// The same for terminals that have told no conversation.
void AgentInventory::matchTerminals() {
  const Entries& codex = of(Source::codex).listed;
  const Entries& external = of(Source::external).listed;
  std::vector<const HerdrAgent*> terminals, unlinked;
  std::vector<std::uint32_t> terminalAt, threadAt;
  for (std::uint32_t i = 0; i < external.size(); ++i) {
    if (external[i]->conversation || !codexTies::mayShowThread(external[i]->agent)) continue;
    terminals.push_back(&external[i]->agent);
    terminalAt.push_back(i);
  }
  if (terminals.empty()) return;
  for (std::uint32_t i = 0; i < codex.size(); ++i) {
    if (threads_[i].linked) continue;
    unlinked.push_back(&codex[i]->agent);
    threadAt.push_back(i);
  }
  for (const auto& [terminal, thread] : codexTies::tie(terminals, unlinked)) {
    Thread& known = threads_[threadAt[thread]];
    if (runsInPane(*terminals[terminal])) {
      known.inPane = true;
      continue;
    }
    known.terminal = terminalAt[terminal];
    known.linked = tied_[known.terminal] = true;
  }
}

// Whether Herdr's own list has it: below Herdr, or of the provider that Herdr sees in the pane that its
// environment names. The environment alone tells little, since whatever was started from the pane inherits
// it.
bool AgentInventory::runsInPane(const HerdrAgent& process) const {
  if (process.herdrOwned || !process.externalProcess) return process.herdrOwned;
  const auto& pane = process.externalProcess->herdrPane;
  return pane && std::ranges::any_of(
                     records_[static_cast<std::size_t>(Source::herdr)].listed, [&](const Entry& each) {
                       return each->agent.paneID == *pane && each->agent.provider == process.provider;
                     });
}

std::optional<HerdrAgent> AgentInventory::terminalOf(const HerdrAgent& thread) {
  if (!thread.isCodexLive()) return std::nullopt;
  merged();
  const auto known = threadsByID_.find(thread.paneID);
  if (known == threadsByID_.end() || threads_[known->second].terminal == kNone) return std::nullopt;
  return of(Source::external).listed[threads_[known->second].terminal]->agent;
}

// A thread that is open in a pane keeps the name that the person knows from there; one that runs in another
// terminal is found there.
AgentList::Entry AgentInventory::shownThread(std::uint32_t index) const {
  const Entry& thread = records_[static_cast<std::size_t>(Source::codex)].listed[index];
  const auto [pane, terminal, linked, inPane] = threads_[index];
  if (pane == kNone && terminal == kNone) return thread;
  if (pane == kNone) {
    HerdrAgent shown = thread->agent;
    shown.externalProcess =
        records_[static_cast<std::size_t>(Source::external)].listed[terminal]->agent.externalProcess;
    return std::make_shared<ListedAgent>(std::move(shown), thread->conversation);
  }
  HerdrAgent shown = thread->agent;
  shown.title =
      records_[static_cast<std::size_t>(Source::herdr)].listed[pane]->agent.displayTitle(preferences_);
  shown.machine.reset();
  shown.externalProcess.reset();
  shown.terminalID.reset();
  shown.since.reset();
  shown.herdrOwned = false;
  return std::make_shared<ListedAgent>(std::move(shown), thread->conversation);
}

// Herdr's panes and the Codex threads, sorted by id. A pane on a loaded thread is represented by the thread.
AgentInventory::Entries AgentInventory::managed() {
  Entries panes;
  Entries threads;
  const Records& herdr = of(Source::herdr);
  const Records& codex = of(Source::codex);
  panes.reserve(herdr.sorted.size());
  for (const std::uint32_t at : herdr.sorted) {
    const Entry& entry = herdr.listed[at];
    if (threads_.empty() || !hasCodexThread(*entry) || !threadsByID_.contains(*entry->conversation))
      panes.push_back(entry);
  }
  if (codex.sorted.empty()) return panes;
  threads.reserve(codex.sorted.size());
  for (const std::uint32_t at : codex.sorted) threads.push_back(shownThread(at));
  Entries result;
  result.reserve(panes.size() + threads.size());
  std::ranges::merge(std::make_move_iterator(panes.begin()), std::make_move_iterator(panes.end()),
                     std::make_move_iterator(threads.begin()), std::make_move_iterator(threads.end()),
                     std::back_inserter(result), kByID);
  return result;
}

// The record as the list shows it. What the last merge made is used again where it is the same.
AgentList::Entry AgentInventory::withHidden(const Entry& entry, const Hidden& hidden) {
  const auto [begin, end] = hidden.equal_range(entry.get());
  const bool form = showsForm(*entry);
  if (begin == end && !form) return entry;
  HerdrAgent agent = entry->agent;
  for (auto each = begin; each != end; ++each) raise(agent, each->second->agent);
  if (form && agent.state == AgentState::working) agent.state = AgentState::blocked;
  if (agent == entry->agent) return entry;
  Entry& raised = raised_[entry->id];
  if (!raised || raised->agent != agent || raised->conversation != entry->conversation)
    raised = std::make_shared<ListedAgent>(std::move(agent), entry->conversation);
  return raised;
}

void AgentInventory::merge() {
  for (Records& records : records_) takeOver(records);
  matchThreads();

  Entries inside = managed();
  const Records& external = of(Source::external);
  Conversations known(inside.size() + external.sorted.size());
  Hidden hidden;
  // False where another record shows the conversation. Codex's server knows the state of its threads itself.
  const auto isShown = [&](const ListedAgent& listed) {
    const ListedAgent* const shown = known.insert(listed);
    if (shown && listed.agent.knownProvider() == AgentProvider::claude) hidden.emplace(shown, &listed);
    return !shown;
  };
  std::erase_if(inside, [&](const Entry& entry) { return entry->conversation && !isShown(*entry); });

  // Of two processes on one conversation, that outside Herdr is shown; a process under Herdr without a
  // conversation of its own is shown by its pane already.
  std::vector<bool> kept(external.sorted.size());
  for (const bool owned : {false, true}) {
    for (std::size_t i = 0; i < kept.size(); ++i) {
      const ListedAgent& listed = *external.listed[external.sorted[i]];
      if (runsInPane(listed.agent) != owned || tied_[external.sorted[i]]) continue;
      kept[i] = listed.conversation ? isShown(listed) : !owned;
    }
  }

  Inventory result;
  const Entries& remote = of(Source::remote).listed;
  const std::size_t most = inside.size() + kept.size() + remote.size();
  result.all.reserve(most);
  result.primary.reserve(most);
  const auto add = [&](const Entry& source) {
    const Entry entry = withHidden(source, hidden);
    const bool codexLive = entry->agent.isCodexLive();
    const auto thread = codexLive ? threadsByID_.find(entry->agent.paneID) : threadsByID_.end();
    const Thread known = thread == threadsByID_.end() ? Thread() : threads_[thread->second];
    const bool shown = known.linked || (hasWorked(entry->agent) && !known.inPane);
    (codexLive && !shown ? result.loadedCodex : result.primary).add(entry);
    result.all.add(entry);
  };
  const ListedAgent* last = nullptr;
  const auto addOnce = [&](const Entry& entry) {
    if (last && last->id == entry->id) return;
    last = entry.get();
    add(entry);
  };
  auto next = inside.begin();
  for (std::size_t i = 0; i < kept.size(); ++i) {
    if (!kept[i]) continue;
    const Entry& entry = external.listed[external.sorted[i]];
    while (next != inside.end() && !kByID(entry, *next)) addOnce(*next++);
    addOnce(entry);
  }
  while (next != inside.end()) addOnce(*next++);
  for (const Entry& entry : remote) add(entry);
  std::erase_if(raised_, [](const auto& each) { return each.second.use_count() == 1; });  // not in any list
  merged_ = std::move(result);
}

}  // namespace ostrel

// The answer to what an "agent" on screen is: four sources report agents, and one conversation may show up in
// several of them; this is the one list without repeats. A Claude Code conversation that is open in several
// places shows the most urgent of their states, and one that works with a form open waits for the person.
// Main thread only.
//
// Sources are handed over whole when they change; a merge runs when the list is next asked for. Each source
// keeps its records shared and sorted, so that a merge copies no record and derives nothing anew but for
// records that changed.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "Agents/AgentList.h"
#include "Platform/Preferences.h"

namespace ostrel {

// The merged list, by use. `primary` and `loadedCodex` partition `all`, order kept. Local agents are sorted
// by id; those of saved machines stand behind them.
struct Inventory {
  AgentList all;
  AgentList primary;  // what the interface shows as agents
  // Codex threads that are loaded, have not worked before our eyes and are linked to no agent.
  AgentList loadedCodex;
};

class AgentInventory {
 public:
  enum class Source : std::uint8_t { herdr, external, codex, remote };

  // Manual links and titles are read from `preferences`.
  explicit AgentInventory(const Preferences& preferences) : preferences_(preferences) {}

  // What `source` reports now. `agents` is read at the next `merged`, and must stay until then or until it is
  // handed over again.
  void changed(Source source, const std::vector<HerdrAgent>& agents);
  // A manual link or a title was set or removed.
  void preferencesChanged();

  // The listed agent of that id; null where there is none. Valid until the next call after a change.
  const HerdrAgent* find(std::string_view id);
  // The same as its own source has it, where the list may show another record of the conversation.
  const HerdrAgent* reported(std::string_view id);
  // Conversations of Claude Code on this machine whose terminals show a form.
  void formsChanged(const std::set<std::string>& conversations);
  // The most urgent state in which a source has a conversation of this machine, whatever the list shows.
  std::optional<AgentState> reportedState(std::string_view conversation);

  // The process of the terminal for which a listed Codex thread stands, as its own source has it; nothing
  // where none is known.
  std::optional<HerdrAgent> terminalOf(const HerdrAgent& thread);

  // The reference holds until the next call after a change; the lists in it may be kept.
  const Inventory& merged();

 private:
  // One source: its records as reported, and their order by id.
  struct Records {
    const std::vector<HerdrAgent>* reported = nullptr;  // not yet taken over
    std::vector<AgentList::Entry> listed;
    std::vector<std::uint32_t> sorted;
  };
  using Entries = std::vector<AgentList::Entry>;
  // Records that are not in the list, by the one that shows their conversation.
  using Hidden = std::unordered_multimap<const ListedAgent*, const ListedAgent*>;

  Records& of(Source source) { return records_[static_cast<std::size_t>(source)]; }
  void takeOver(Records& records);
  AgentList::Entry listed(const HerdrAgent& agent) const;
  void matchThreads();
  bool runsInPane(const HerdrAgent& process) const;
  void matchTerminals();
  Entries managed();
  AgentList::Entry shownThread(std::uint32_t index) const;
  AgentList::Entry withHidden(const AgentList::Entry& entry, const Hidden& hidden);
  bool showsForm(const ListedAgent& listed) const;
  void merge();

  static constexpr std::uint32_t kNone = UINT32_MAX;
  // What is known of a loaded Codex thread.
  struct Thread {
    std::uint32_t pane = kNone;      // the first Herdr record on the same conversation
    std::uint32_t terminal = kNone;  // the process in whose terminal it runs
    bool linked = false;             // some agent is on the same conversation
    bool inPane = false;             // it runs in a Herdr pane that tells no conversation and stands for it
  };

  const Preferences& preferences_;
  Records records_[4];
  std::unordered_map<std::string_view, std::uint32_t> threadsByID_;  // views of the records' texts
  std::vector<Thread> threads_;                                      // by index of the Codex records
  std::vector<bool> tied_;  // by index of the external records: a thread stands for it
  std::unordered_map<std::string, AgentList::Entry> raised_;  // made by `withHidden`, by id
  std::set<std::string> forms_;
  std::optional<Inventory> merged_;
};

}  // namespace ostrel

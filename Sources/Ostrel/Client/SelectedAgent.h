// What is shown of the agent that the person has open: its conversation and its terminal's text, kept fresh
// for as long as it is open. Main thread only; files and commands are read in the background.
//
// A switch shows what was last seen of the agent at once, before anything is read. A failed read never blanks
// what is shown.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Client/AgentInventory.h"
#include "Client/HerdrLink.h"
#include "Client/SelectedConversation.h"
#include "Conversations/AgentTranscriptReader.h"
#include "Platform/Preferences.h"
#include "Runtime/Task.h"

namespace ostrel {

class SelectedAgent {
 public:
  struct Parts {
    const Preferences& preferences;
    HerdrLink& link;
    AgentInventory& inventory;
    TranscriptSource* transcripts;  // null where nobody opens an agent
  };
  SelectedAgent(MainLoop& loop, Parts parts);

  // Whether conversations of this kind of agent can be read at all; of the others only the terminal.
  static bool hasHistory(const HerdrAgent& agent);

  // Shows `agent` and follows it. Where it is followed already nothing is done.
  void open(const HerdrAgent& agent);
  // Ends following and empties everything; `forget` drops what is remembered of other agents too.
  void close(bool forget = false);
  // Looks at the conversation now; one look at a time.
  void refreshHistory(const HerdrAgent& agent);

  const SelectedConversation& shown() const { return shown_; }

 private:
  // The last state of an agent by its history key; cleared whole before it outgrows its cap.
  template <class T>
  class Cache {
   public:
    const T* find(const std::string& key) const {
      const auto found = entries_.find(key);
      return found == entries_.end() ? nullptr : &found->second;
    }
    void put(const std::string& key, T value) {
      if (entries_.size() >= kMost && !entries_.contains(key)) entries_.clear();
      entries_.insert_or_assign(key, std::move(value));
    }
    void clear() { entries_.clear(); }

   private:
    static constexpr std::size_t kMost = 20;
    std::map<std::string, T> entries_;
  };

  void showHistory(const std::string& key);
  void nowLoading(std::string key);
  Task<void> loadHistory(std::string key, std::optional<std::string> reference,
                         std::optional<std::string> kind, std::string provider);
  Task<void> followHistory(std::string id);
  Task<void> followPane(HerdrAgent agent);

  Parts parts_;
  SelectedConversation shown_;
  std::string openID_;
  std::string openKey_;       // which conversation and terminal are followed
  std::string displayedKey_;  // whose history is shown
  std::string inFlight_;      // whose history is being read; empty for none
  Cache<AgentTranscriptSnapshot> histories_;
  Cache<std::string> outputs_;
  TaskScope history_;
  TaskScope following_;
};

}  // namespace ostrel

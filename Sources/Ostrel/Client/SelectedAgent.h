// What is shown of the agent that the person has open: its conversation and its terminal's text, kept fresh
// for as long as it is open. Main thread only; files, sockets and commands are read in the background.
//
// A switch shows what was last seen of the agent at once, before anything is read. A failed read never blanks
// what is shown.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Client/HerdrLink.h"
#include "Conversations/AgentTranscript.h"
#include "Herdr/HerdrCommand.h"
#include "Platform/Preferences.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class SelectedAgent {
 public:
  struct Doors {
    // As `AgentTranscriptReader::load`.
    std::function<Task<AgentTranscriptSnapshot>(std::optional<std::string> reference,
                                                std::optional<std::string> kind, std::string provider)>
        loadHistory;
    // As `HerdrSocket::read`; called on background threads.
    std::function<std::string(const std::string& path, const std::string& pane, const std::string& source,
                              const std::stop_token& stop)>
        readPane;
    HerdrCommand::Run run;
    // The record of an agent as its source has it now, by id; nothing once it has gone.
    std::function<std::optional<HerdrAgent>(const std::string& id)> current;
  };
  SelectedAgent(MainLoop& loop, BackgroundPool& pool, const Preferences& preferences, HerdrLink& link,
                Doors doors);

  // Shows `agent` and follows it. Where it is followed already nothing is done.
  void open(const HerdrAgent& agent);
  // Ends following and empties everything; `forget` drops what is remembered of other agents too.
  void close(bool forget = false);
  // Looks at the conversation now; one look at a time.
  void refreshHistory(const HerdrAgent& agent);

  // The conversation, oldest first, and what is known of the session.
  Published<std::vector<AgentTranscriptMessage>>& transcript() { return transcript_; }
  Published<AgentSessionDetails>& sessionDetails() { return sessionDetails_; }
  // Why there are no messages, or no newer ones.
  Published<std::optional<std::string>>& transcriptNotice() { return transcriptNotice_; }
  // A first look at the conversation is under way, with nothing to show yet.
  bool loadingHistory() const { return !inFlight_.empty() && transcript_->empty(); }
  // The terminal's text.
  Published<std::string>& output() { return output_; }
  Published<bool>& hasLoadedOutput() { return hasLoadedOutput_; }
  Published<std::optional<std::string>>& outputError() { return outputError_; }

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
  Task<void> loadHistory(std::string key, std::optional<std::string> reference,
                         std::optional<std::string> kind, std::string provider);
  Task<void> followHistory(std::string id);
  Task<void> followPane(HerdrAgent agent);
  Task<std::string> read(HerdrAgent agent, std::optional<std::string> socket);

  BackgroundPool& pool_;
  const Preferences& preferences_;
  HerdrLink& link_;
  Doors doors_;
  Published<std::vector<AgentTranscriptMessage>> transcript_;
  Published<AgentSessionDetails> sessionDetails_;
  Published<std::optional<std::string>> transcriptNotice_;
  Published<std::string> output_;
  Published<bool> hasLoadedOutput_{false};
  Published<std::optional<std::string>> outputError_;
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

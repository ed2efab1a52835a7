// Transcript lines into messages and details, at the speed at which the bytes come in.
//
// Used by `AgentTranscriptReader`, which keeps one `ParseState` a file, and behind `AgentTranscript::consume`
// for single calls. No locks: one thread at a time.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "Conversations/AgentTranscript.h"

namespace ostrel {

// The latest messages of a transcript. A slot's texts keep their memory when a new message takes the slot.
class LatestMessages {
 public:
  static constexpr std::size_t kLimit = 100;

  // Appends a message; the oldest goes when there are `kLimit`. Gives its text, to be replaced by the caller.
  std::string& append(std::string_view id, std::string_view role, std::optional<std::string_view> timestamp);

  std::size_t size() const { return slots_.size(); }
  // 0 is the oldest.
  const AgentTranscriptMessage& operator[](std::size_t index) const {
    return slots_[(first_ + index) % slots_.size()];
  }

 private:
  std::vector<AgentTranscriptMessage> slots_;
  std::size_t first_ = 0;
};

// The ids already taken, as 128-bit hashes: 16 bytes an id, where its text would take 100. Ids are random
// UUIDs or line numbers; among a million of them two share a hash with a chance of 1 in 10^27, and then one
// message is not shown.
class MessageIds {
 public:
  // False when the id was there already.
  bool insert(std::string_view id);
  std::size_t size() const { return count_; }

 private:
  using Hash = std::array<std::uint64_t, 2>;  // all zero: a free place
  void place(const Hash& hash);

  std::vector<Hash> table_;  // a power of two, at most three quarters full
  std::size_t count_ = 0;
};

struct AgentTranscript::ParseState {
  LatestMessages messages;
  MessageIds seen;          // of all lines, not only of the messages kept
  std::uint64_t lines = 0;  // consumed so far
  AgentSessionDetails details;

  AgentTranscriptSnapshot snapshot() const;
};

// The parser with its working memory, which grows to a few times the longest line.
class TranscriptParser {
 public:
  TranscriptParser();
  TranscriptParser(const TranscriptParser&) = delete;
  TranscriptParser& operator=(const TranscriptParser&) = delete;
  ~TranscriptParser();

  // As `AgentTranscript::consume`. `readable` (not less than `data.size()`) bytes may be read from the start
  // of `data`; lines with 64 readable bytes behind them are parsed where they stand.
  void consume(std::string_view data, std::size_t readable, AgentTranscript::ParseState& state);

  // As `AgentTranscript::applyDetails`, for each line.
  void details(std::string_view data, std::size_t readable, AgentSessionDetails& details);

  // Gives back the memory that an unusually long line took.
  void trimMemory();

 private:
  struct Line;
  std::unique_ptr<Line> line_;
};

}  // namespace ostrel

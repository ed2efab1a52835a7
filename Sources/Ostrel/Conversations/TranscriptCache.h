// Parsed transcripts by file. A file that grows costs its new bytes, a file that does not change costs one
// `stat`.
//
// The blocking core of `AgentTranscriptReader`. One call at a time, on any thread; it keeps no file open.
#pragma once

#include <cstdint>
#include <filesystem>
#include <list>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include "Conversations/AgentTranscript.h"
#include "Conversations/LineBuffer.h"
#include "Conversations/TranscriptParser.h"

struct stat;

namespace ostrel {

class TranscriptCache {
 public:
  static constexpr std::uint64_t kTailWindow = 8'000'000;  // bytes; the most of a file that is read at once
  static constexpr std::uint64_t kHeadWindow =
      64'000;                                  // read for details when the tail doesn't reach the start
  static constexpr std::size_t kEntries = 20;  // files kept parsed
  static constexpr std::size_t kPaths = 40;    // references kept resolved

  explicit TranscriptCache(AgentTranscript transcripts);

  // Resolves the reference (once, while its file exists) and reads. The state is valid until the next call.
  // Throws `Failure` as `AgentTranscript::resolve` and `read` do, and `Cancelled` when `stop` fires.
  const AgentTranscript::ParseState& load(const std::optional<std::string>& reference,
                                          const std::optional<std::string>& kind, std::string_view provider,
                                          std::stop_token stop);

  // The state of the file: its whole lines within the tail window, and what was added to it since. A line
  // that is still being written is left for the next look. A file that was replaced or cut starts anew.
  // Throws `Failure` when the file can't be read, and `Cancelled`; what had been read by then is not read
  // again.
  const AgentTranscript::ParseState& read(const std::filesystem::path& path, std::stop_token stop);

 private:
  struct Stamp {
    std::uint64_t size = 0;
    std::int64_t modified = 0;  // nanoseconds since 1970
    std::uint64_t inode = 0;
    bool operator==(const Stamp&) const = default;
  };
  struct Entry {
    std::string path;
    std::optional<Stamp> stamp;          // as of the last complete look; none before it
    std::optional<std::uint64_t> inode;  // of the file that `state` comes from; none before its first line
    std::uint64_t consumed = 0;          // bytes up to the end of the last whole line parsed
    AgentTranscript::ParseState state;
  };

  static std::optional<Stamp> stampOf(const std::string& path);
  static Stamp stampOf(const struct stat& info);
  Entry& entryFor(const std::string& path);
  const AgentTranscript::ParseState& look(const std::string& path, const Stamp& stamp,
                                          const std::stop_token& stop);
  // Prepares an entry for reading a file from its start, or from the first line of its tail window.
  void startAnew(int fd, const Stamp& stamp, Entry& entry, const std::stop_token& stop);
  // Parses whole lines of [entry.consumed, end), moving `consumed` along.
  void readLines(int fd, std::uint64_t end, Entry& entry, const std::stop_token& stop);

  AgentTranscript transcripts_;
  std::list<Entry> entries_;                  // the latest looked at is last
  std::map<std::string, std::string> paths_;  // provider, kind and reference to the resolved path
  LineBuffer buffer_;
  TranscriptParser parser_;
};

}  // namespace ostrel

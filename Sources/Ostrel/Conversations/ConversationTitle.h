// The title of a Claude Code conversation, from the lines of its transcript: the user's own, else the
// automatic one, else the first prompt.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "Conversations/AgentTranscript.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

// The title that a piece of a transcript gives to the conversation `sessionID`. Pure.
std::optional<std::string> conversationTitle(std::string_view data, std::string_view sessionID);

// Titles of transcript files, with a cache by file: a conversation that is being written is not read again
// within 30 seconds. Blocks; any thread.
class ConversationTitles {
 public:
  explicit ConversationTitles(AgentTranscript transcripts);

  // The title of the conversation that the reference means; nothing for providers without titles,
  // unresolvable references and unreadable files. `now` ages the cache. At most the last 2,000,000 bytes of
  // the file are read.
  std::optional<std::string> linkedTitle(const std::optional<std::string>& reference,
                                         const std::optional<std::string>& kind, std::string_view provider,
                                         TimePoint now);

  static constexpr Duration kFresh = std::chrono::seconds(30);

 private:
  struct Signature {
    std::int64_t size = -1;     // bytes; -1 when unknown
    std::int64_t modified = 0;  // nanoseconds since 1970
    bool operator==(const Signature&) const = default;
  };
  struct Known {
    Signature signature;
    std::optional<std::string> title;
    TimePoint read;
  };

  AgentTranscript transcripts_;
  std::mutex titleLock_;  // of `titles_` only: files are read without it
  std::map<std::string, Known, std::less<>> titles_;
};

}  // namespace ostrel

// A conversation as the blocks that a view sets one below the other: paragraphs, code, tool rows, folded
// notices. Pure functions, any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Conversations/AgentTranscript.h"

namespace ostrel {

struct ConversationBlock {
  enum class Kind {
    prose,     // of the agent: Markdown
    words,     // of the person: as typed
    code,      // fixed width, without its fence
    tool,      // something that the agent ran
    activity,  // a notice of the agent's program, folded
  };
  std::string key;      // unique in the conversation, and the same when more comes
  std::string message;  // the id of the message that it is part of
  Kind kind = Kind::prose;
  bool person = false;  // said by the person
  bool first = false;   // in its message
  bool last = false;
  bool running = false;                  // a tool
  std::string text;                      // what is shown of it, of a notice what its fold hides
  std::string label;                     // the language of code; the line of a notice
  std::optional<std::string> timestamp;  // of the message, as written
  bool operator==(const ConversationBlock&) const = default;
};

// Notices of the agent's program are left out unless `activity` is wanted.
std::vector<ConversationBlock> conversationBlocks(const std::vector<AgentTranscriptMessage>& messages,
                                                  bool activity);

// The places in `blocks` of those that hold `words`, whatever the case; folded notices don't count.
std::vector<std::size_t> findInConversation(const std::vector<ConversationBlock>& blocks,
                                            std::string_view words);

// The whole conversation as text, for the clipboard: who speaks ("You" or `agent`), then what was said.
std::string conversationText(const std::vector<AgentTranscriptMessage>& messages, std::string_view agent);

}  // namespace ostrel

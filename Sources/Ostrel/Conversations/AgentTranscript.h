// Conversations as Claude Code and Codex write them: JSON Lines files, found from a reference and read into
// messages.
//
// The line formats are those programs' own (Claude Code 2.1, Codex 0.169). Pure functions over bytes, except
// `resolve`, which looks at the file system and so belongs into background work. Files are read by
// `AgentTranscriptReader`.
#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Environment.h"

namespace ostrel {

struct AgentTranscriptMessage {
  std::string id;    // the line's "uuid", or "line-<n>"
  std::string role;  // "user", "assistant", "activity"; also "tool" and "tool-running" from Codex turns
  std::string text;
  std::optional<std::string> timestamp;  // as written
  bool operator==(const AgentTranscriptMessage&) const = default;
};

struct AgentSessionDetails {
  std::optional<std::string> branch;
  std::optional<std::string> model;
  std::optional<std::string> effort;
  bool operator==(const AgentSessionDetails&) const = default;
};

struct AgentTranscriptSnapshot {
  std::vector<AgentTranscriptMessage> messages;  // oldest first, at most 100
  AgentSessionDetails details;
  bool operator==(const AgentTranscriptSnapshot&) const = default;
};

// The canonical conversation id of a reference: a UUID in lower case, from the UUID itself or from the file
// name of a
// ".jsonl" path ("<uuid>.jsonl", "rollout-...-<uuid>.jsonl"). Nothing for any other text.
std::optional<std::string> conversationID(std::string_view reference);

// A handle: copies share the caches of `resolve`.
class AgentTranscript {
 public:
  explicit AgentTranscript(Environment environment);

  // The transcript file that a reference means. `kind` is "path" or "id"; `provider` as the agent has it.
  // Both the file and the provider's history folders are resolved through symbolic links, and the file must
  // lie below one of the folders. Throws `Failure` with the words that the user sees. Blocks; any thread.
  //
  // An id's file is remembered for as long as it exists. An id without a file (a session that has said
  // nothing yet) costs one `stat` a history folder until one of the folders changes.
  std::filesystem::path resolve(const std::optional<std::string>& reference,
                                const std::optional<std::string>& kind, std::string_view provider) const;

  // What has been parsed of one file: see "Conversations/TranscriptParser.h".
  struct ParseState;

  // Takes in the lines of `data`, which are separated by newlines: n newlines make n + 1 lines. Lines that
  // are no JSON objects count and are otherwise passed over. Of repeated keys the last one counts.
  static void consume(std::string_view data, ParseState& state);

  // The details that the lines of `data` give, a cut last line passed over.
  static AgentSessionDetails details(std::string_view data);

  // What one line changes in `details`.
  static void applyDetails(std::string_view line, AgentSessionDetails& details);

  // Whether a text of the role "user" was written by the agent's program in the user's name.
  static bool isRuntimeNotification(std::string_view text, std::string_view role);

 private:
  struct Shared;
  std::shared_ptr<Shared> shared_;
};

}  // namespace ostrel

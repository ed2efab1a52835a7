// One question that Claude Code puts to its user before it uses a tool, as its permission hook hands it over,
// and the answers that go back. Values and pure functions; any thread.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Agents/FileChange.h"
#include "Agents/RequestAnswer.h"
#include "Runtime/Json.h"
#include "Runtime/MainLoop.h"

namespace ostrel {

struct ClaudePermissionAnswer;

struct ClaudePermissionRequest {
  struct Option {
    std::string label;
    std::string description;  // may be empty
    bool operator==(const Option&) const = default;
  };
  struct Question {
    std::string question;  // also the key of its answer
    std::string header;    // may be empty
    std::vector<Option> options;
    bool multiSelect = false;
    bool operator==(const Question&) const = default;
  };

  std::string id;                        // a UUID of our own, made on arrival
  std::string sessionID;                 // Claude Code's session: the conversation id of the agent that asks
  std::string tool;                      // Claude Code's name for the tool
  std::string title;                     // what is being asked, in plain words
  std::string detail;                    // what to show under the title; may be empty
  std::vector<std::string> alwaysRules;  // what "always" would allow from now on; empty where not on offer
  std::vector<Question> questions;       // for "AskUserQuestion" only
  std::vector<FileChange> changes;       // of files, where the tool makes any: what would be written
  std::string input;                     // the tool's input: compact JSON of an object
  std::optional<std::string> suggestions;  // the permissions behind `alwaysRules`: compact JSON of an array
  TimePoint arrived{};
  bool operator==(const ClaudePermissionRequest&) const = default;

  // Reads the hook's line (its newline may stand at the end). Nothing when it is no JSON object, lacks a
  // session or a tool, or asks a question with nothing to show: then the prompt is left to the terminal.
  static std::optional<ClaudePermissionRequest> parse(std::string_view line, std::string id,
                                                      TimePoint arrived);

  // Every answer that it takes: "allow", "always" where rules are on offer, and "deny"; questions take
  // "answer".
  std::vector<RequestChoice> choices() const;
  // What `answer` means for this request. Throws `Failure` with words for the person where it is none of
  // `choices`, leaves a question out, or brings what was not asked for. Entries go by the texts of the
  // questions.
  ClaudePermissionAnswer decided(const RequestAnswer& answer) const;
};

// What the user decided.
struct ClaudePermissionAnswer {
  struct Deny {
    std::optional<std::string> message;  // tells Claude what to do instead; without it Claude's turn ends
    bool operator==(const Deny&) const = default;
  };
  struct Answers {
    // By the text of the question. Several choices go out as one text, as Claude Code's own prompt sends
    // them.
    std::map<std::string, std::vector<std::string>> chosen;
    bool operator==(const Answers&) const = default;
  };
  struct Allow {  // once
    bool operator==(const Allow&) const = default;
  };
  struct AllowAlways {  // and keep the offered rules
    bool operator==(const AllowAlways&) const = default;
  };
  std::variant<Deny, Answers, Allow, AllowAlways> value;
  bool operator==(const ClaudePermissionAnswer&) const = default;

  // The kind as statistics name it: "deny", "redirect", "question", "allow", "allow_always".
  std::string_view name() const;

  // The answer to `request` as Claude Code reads it from its hook.
  Json reply(const ClaudePermissionRequest& request) const;
};

}  // namespace ostrel

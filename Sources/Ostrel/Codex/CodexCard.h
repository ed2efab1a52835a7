// What the card of a request shows, without a view: every face draws the same parts in the same order. Pure,
// any thread.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/FileChange.h"
#include "Agents/RequestAnswer.h"
#include "Codex/CodexRequest.h"
#include "Runtime/Json.h"

namespace ostrel {

struct CodexCard {
  using Change = FileChange;
  struct Tool {
    std::string name;
    std::string arguments;  // pretty JSON
    bool operator==(const Tool&) const = default;
  };
  struct Option {
    std::string value;
    std::string label;
    std::string description;
    bool operator==(const Option&) const = default;
  };
  struct Question {
    std::string id, header, question;
    std::vector<Option> options;
    bool freeText = false;
    bool secret = false;  // what is typed is hidden
    bool operator==(const Question&) const = default;
  };
  struct Field {
    enum class Kind { text, boolean, choice, list };
    std::string key;
    std::string label;
    Kind kind = Kind::text;
    std::vector<Option> options;  // of a choice
    bool required = false;
    bool operator==(const Field&) const = default;
  };
  // What the person does besides pressing a choice.
  enum class Step { none, questions, form, link, unsupported };

  std::string title;
  std::vector<std::string> words;  // why Codex asks
  std::optional<std::string> command;
  std::optional<std::string> folder;
  std::optional<std::string> writeAccess;  // the folder for which it asks
  std::vector<Change> changes;             // with their diffs, where Codex tells them
  std::optional<std::string> changesText;  // the same as pretty JSON
  std::optional<std::string> access;       // pretty JSON of what would be granted
  std::optional<Tool> tool;                // of a connected app, that the agent wants to call
  Step step = Step::none;
  std::vector<Question> questions;
  bool skippable = false;  // the questions
  std::vector<Field> fields;
  std::string link;                    // http or https
  std::string unsupported;             // said in place of controls
  std::vector<RequestChoice> choices;  // every answer that can be given

  // `item` is what the request refers to, as JSON, where it has come; `linkOpened` whether the person has
  // opened its link.
  static CodexCard of(const CodexRequest& request, const std::optional<std::string>& item,
                      bool linkOpened = false);
  bool operator==(const CodexCard&) const = default;

  // Under which key the controller keeps that item; nothing where the request names none.
  static std::optional<std::string> itemKey(const CodexRequest& request);
};

}  // namespace ostrel

// What a person has entered into the card of one request so far, and the answers that come of it; the views
// only show it and pass on what is pressed. A card is made anew for each request. Main thread only.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>

#include "Codex/CodexCard.h"
#include "Codex/CodexForm.h"
#include "Codex/CodexRequest.h"

namespace ostrel {

class CodexCardModel {
 public:
  explicit CodexCardModel(CodexRequest request);

  const CodexRequest& request() const { return request_; }
  const CodexCard& card() const { return card_; }
  // What the request refers to, as JSON, once it has come. True when the card shows something else then.
  bool setItem(const std::optional<std::string>& item);

  // One answer to a question: an option, or a text of one's own. Each takes the other's place.
  void choose(std::size_t question, std::size_t option);
  bool isChosen(std::size_t question, std::size_t option) const;
  // By a question's id or a field's key; of a field its value.
  void type(const std::string& key, std::string text);
  std::string typed(const std::string& key) const;

  // The button for what was entered, and its result. Nothing is sent while something is missing or wrong:
  // then `validation` says what.
  std::string submitTitle() const;
  std::optional<std::string> submit();
  const std::optional<std::string>& validation() const { return validation_; }

  // A step behind a link can be called done once the link was opened.
  void linkOpened() { linkOpened_ = true; }
  bool isLinkOpened() const { return linkOpened_; }

 private:
  CodexRequest request_;
  CodexCard card_;
  CodexForm::Answers chosen_;  // labels, by the question's id
  CodexForm::Answers typed_;
  std::optional<std::string> validation_;
  bool linkOpened_ = false;
};

}  // namespace ostrel

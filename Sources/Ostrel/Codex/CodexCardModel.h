// What a person has entered into the card of one request so far, and the answer that comes of it; the views
// only show it and pass on what is pressed. A card is made anew for each request. Main thread only.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <utility>

#include "Codex/CodexCard.h"
#include "Codex/CodexRequest.h"

namespace ostrel {

class CodexCardModel {
 public:
  CodexCardModel(CodexRequest request, CodexCard card)
      : request_(std::move(request)), card_(std::move(card)) {}

  const CodexRequest& request() const { return request_; }
  const CodexCard& card() const { return card_; }
  // The card as it is now: what the request refers to has come, say. True when it shows something else.
  bool show(CodexCard card);

  // One answer to a question: an option, or a text of one's own. Each takes the other's place.
  void choose(std::size_t question, std::size_t option);
  bool isChosen(std::size_t question, std::size_t option) const;
  // By a question's id or a field's key; of a field its value.
  void type(const std::string& key, std::string text);
  std::string typed(const std::string& key) const;

  // What was entered, as an answer. Whether it will do, `OpenRequests` says.
  RequestAnswer submit() const;

 private:
  CodexRequest request_;
  CodexCard card_;
  std::map<std::string, std::string> chosen_;  // labels, by the question's id
  std::map<std::string, std::string> typed_;
};

}  // namespace ostrel

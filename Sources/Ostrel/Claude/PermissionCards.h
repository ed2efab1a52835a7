// What the two cards know that put an open request of Claude Code before the user; the views only show it and
// pass on what is pressed. A card is made anew for each request. An operation that gives an answer gives it
// once it is to be sent (`OpenRequests::answer`). Main thread only.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Claude/ClaudePermissionRequest.h"

namespace ostrel {

// For a request without questions: yes, yes for good, no, or what to do instead.
class PermissionCardModel {
 public:
  explicit PermissionCardModel(ClaudePermissionRequest request) : request_(std::move(request)) {}

  const ClaudePermissionRequest& request() const { return request_; }
  // How Claude describes the command that it wants to run; may be empty.
  std::string purpose() const;
  // Whether "Yes, don't ask again" is there at all, and the line under it.
  bool offersAlways() const { return !request_.alwaysRules.empty(); }
  std::string alwaysLine() const;
  // Return in the field for what to do instead; nothing while it holds only blanks.
  std::optional<RequestAnswer> instead(std::string_view text) const;

 private:
  const ClaudePermissionRequest request_;
};

// For a request with questions. Questions and options go by their places in the request.
class QuestionCardModel {
 public:
  using Question = ClaudePermissionRequest::Question;

  explicit QuestionCardModel(ClaudePermissionRequest request) : request_(std::move(request)) {}

  const ClaudePermissionRequest& request() const { return request_; }

  // A click on an option: the one choice, or with `multiSelect` in or out.
  void choose(std::size_t question, std::size_t option);
  bool isChosen(std::size_t question, std::size_t option) const;
  // The answer of one's own: beside the chosen options, or in place of the one choice.
  void setOther(std::size_t question, std::string text);
  std::string other(std::size_t question) const;

  // What would be sent for a question: chosen labels in the order of the options, then the own answer.
  std::vector<std::string> picks(std::size_t question) const;
  // Whether the request takes what was entered, so that the card can be sent.
  bool complete() const { return send().has_value(); }
  // The button "Send"; nothing while the request would not take it.
  std::optional<RequestAnswer> send() const;
  // Puts the keyboard on the first question that has no answer yet; false where each has one.
  bool focusMissing();

  // Keys. Up and down move among the options of the focused question, and one step further, behind the last.
  // Tab goes to the next question, from the last to the first.
  void up();
  void down();
  void tab();
  // The person works in that option, or, behind the last, in the field for an own answer.
  void focus(std::size_t question, std::size_t option);
  // Return chooses the highlighted option. A single choice, or the step behind the options, also ends the
  // question: the next one gets the focus, and on the last the card is sent when it is complete.
  std::optional<RequestAnswer> enter();

  std::size_t focusedQuestion() const { return focused_; }
  // An option of the focused question; their count for the step behind them.
  std::size_t highlighted() const { return highlighted_; }

 private:
  const Question& question(std::size_t index) const { return request_.questions.at(index); }

  const ClaudePermissionRequest request_;
  // By the text of the question, as the answers are.
  std::map<std::string, std::vector<std::string>> chosen_;
  std::map<std::string, std::string> other_;
  std::size_t focused_ = 0;
  std::size_t highlighted_ = 0;
};

}  // namespace ostrel

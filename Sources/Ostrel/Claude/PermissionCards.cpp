#include "Claude/PermissionCards.h"

#include <algorithm>
#include <utility>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

std::string PermissionCardModel::purpose() const {
  if (request_.tool != "Bash") return {};
  const Json input = json::parse(request_.input).value_or(Json());
  return std::string(text::trim(json::string(input, "description").value_or("")));
}

std::string PermissionCardModel::alwaysLine() const {
  return fmt::format("Allow from now on: {}", fmt::join(request_.alwaysRules, ", "));
}

std::optional<RequestAnswer> PermissionCardModel::instead(std::string_view text) const {
  const std::string_view trimmed = text::trim(text);
  if (trimmed.empty()) return std::nullopt;
  return RequestAnswer{.choice = "deny", .message = std::string(trimmed)};
}

void QuestionCardModel::choose(std::size_t index, std::size_t option) {
  const std::string& label = question(index).options.at(option).label;
  auto& chosen = chosen_[question(index).question];
  if (!question(index).multiSelect) {
    chosen = {label};
  } else if (std::erase(chosen, label) == 0) {
    chosen.push_back(label);
  }
}

bool QuestionCardModel::isChosen(std::size_t index, std::size_t option) const {
  const auto found = chosen_.find(question(index).question);
  return found != chosen_.end() &&
         std::ranges::find(found->second, question(index).options.at(option).label) != found->second.end();
}

void QuestionCardModel::setOther(std::size_t index, std::string text) {
  other_[question(index).question] = std::move(text);
}

std::string QuestionCardModel::other(std::size_t index) const {
  const auto found = other_.find(question(index).question);
  return found == other_.end() ? std::string() : found->second;
}

std::vector<std::string> QuestionCardModel::picks(std::size_t index) const {
  const Question& asked = question(index);
  std::vector<std::string> picks;
  for (std::size_t option = 0; option < asked.options.size(); ++option) {
    if (isChosen(index, option)) picks.push_back(asked.options[option].label);
  }
  const std::string typed = other(index);
  const std::string_view own = text::trim(typed);
  if (!own.empty()) {
    if (!asked.multiSelect) picks.clear();
    picks.emplace_back(own);
  }
  return picks;
}

std::optional<RequestAnswer> QuestionCardModel::send() const {
  RequestAnswer answer{.choice = "answer"};
  for (std::size_t i = 0; i < request_.questions.size(); ++i)
    answer.entries.insert_or_assign(question(i).question, picks(i));
  try {
    static_cast<void>(request_.decided(answer));
  } catch (const Failure&) {
    return std::nullopt;
  }
  return answer;
}

bool QuestionCardModel::focusMissing() {
  for (std::size_t i = 0; i < request_.questions.size(); ++i) {
    if (!picks(i).empty()) continue;
    focus(i, 0);
    return true;
  }
  return false;
}

void QuestionCardModel::up() {
  if (highlighted_ > 0) --highlighted_;
}

void QuestionCardModel::down() {
  if (highlighted_ < question(focused_).options.size()) ++highlighted_;
}

void QuestionCardModel::tab() {
  focused_ = (focused_ + 1) % request_.questions.size();
  highlighted_ = 0;
}

void QuestionCardModel::focus(std::size_t index, std::size_t option) {
  focused_ = index;
  highlighted_ = std::min(option, question(index).options.size());
}

std::optional<RequestAnswer> QuestionCardModel::enter() {
  const Question& asked = question(focused_);
  if (highlighted_ < asked.options.size()) {
    choose(focused_, highlighted_);
    if (asked.multiSelect) return std::nullopt;
  }
  if (focused_ + 1 == request_.questions.size()) return send();
  tab();
  return std::nullopt;
}

}  // namespace ostrel

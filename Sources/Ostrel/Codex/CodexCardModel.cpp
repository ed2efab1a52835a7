#include "Codex/CodexCardModel.h"

#include <utility>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

CodexCardModel::CodexCardModel(CodexRequest request)
    : request_(std::move(request)), card_(CodexCard::of(request_, std::nullopt)) {}

bool CodexCardModel::setItem(const std::optional<std::string>& item) {
  CodexCard card = CodexCard::of(request_, item);
  if (card == card_) return false;
  card_ = std::move(card);
  return true;
}

void CodexCardModel::choose(std::size_t question, std::size_t option) {
  const CodexCard::Question& asked = card_.questions.at(question);
  chosen_[asked.id] = asked.options.at(option).value;
  typed_.erase(asked.id);
}

bool CodexCardModel::isChosen(std::size_t question, std::size_t option) const {
  const CodexCard::Question& asked = card_.questions.at(question);
  const auto found = chosen_.find(asked.id);
  return found != chosen_.end() && found->second == asked.options.at(option).value;
}

void CodexCardModel::type(const std::string& key, std::string text) {
  if (!text::trim(text).empty()) chosen_.erase(key);
  typed_[key] = std::move(text);
}

std::string CodexCardModel::typed(const std::string& key) const {
  const auto found = typed_.find(key);
  return found == typed_.end() ? std::string() : found->second;
}

std::string CodexCardModel::submitTitle() const {
  if (card_.step == CodexCard::Step::questions) return "Submit answers";
  // To send it is to let the tool run, and should say so.
  return card_.tool && card_.fields.empty() ? "Allow once" : "Submit form";
}

std::optional<std::string> CodexCardModel::submit() {
  validation_.reset();
  const Json params = json::parse(request_.payload).value_or(Json());
  CodexForm::Answers answers = typed_;
  for (const auto& [id, label] : chosen_) answers[id] = label;
  try {
    if (card_.step == CodexCard::Step::questions) {
      const Json* const questions = json::member(params, "questions");
      return CodexForm::questionsResult(questions ? *questions : Json::array(), answers);
    }
    const Json* const schema = json::member(params, "requestedSchema");
    return CodexForm::formResult(schema ? *schema : Json::object(), answers);
  } catch (const Failure& failure) {
    validation_ = failure.message();
    return std::nullopt;
  }
}

}  // namespace ostrel

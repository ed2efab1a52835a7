#include "Codex/CodexCardModel.h"

#include <utility>

#include "Runtime/Text.h"

namespace ostrel {

bool CodexCardModel::show(CodexCard card) {
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

RequestAnswer CodexCardModel::submit() const {
  RequestAnswer answer{.choice = "submit"};
  for (const auto& [key, text] : typed_) answer.entries[key] = {text};
  for (const auto& [id, label] : chosen_) answer.entries[id] = {label};
  return answer;
}

}  // namespace ostrel

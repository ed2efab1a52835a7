#include "QuestionBridge.h"

#include <utility>

namespace ostrel {

QuestionBridge::QuestionBridge(Words words, Operations operations, QObject* parent)
    : QObject(parent), words_(std::move(words)), operations_(std::move(operations)) {}

void QuestionBridge::show(const std::vector<Option>& options, const QString& own, bool ownFocused) {
  std::vector<Row> rows;
  for (const Option& option : options) {
    rows.push_back({QString::number(rows.size()),
                    {option.label, option.description, option.chosen, option.highlighted}});
  }
  options_.set(rows);
  if (std::exchange(own_, own) != own) Q_EMIT ownChanged();
  if (std::exchange(ownFocused_, ownFocused) != ownFocused) Q_EMIT ownFocusedChanged();
}

void QuestionBridge::setOwn(const QString& text) {
  if (text != own_) operations_.type(text);
}

void QuestionBridge::focusOwn() {
  if (operations_.focusOwn) operations_.focusOwn();
}

}  // namespace ostrel

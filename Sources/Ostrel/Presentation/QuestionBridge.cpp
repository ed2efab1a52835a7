#include "QuestionBridge.h"

#include <utility>

namespace ostrel {

QuestionBridge::QuestionBridge(Words words, Operations operations, QObject* parent)
    : QObject(parent), words_(std::move(words)), operations_(std::move(operations)) {}

void QuestionBridge::show(std::vector<OptionRow> options, const QString& own, bool ownFocused) {
  for (std::size_t i = 0; i < options.size(); ++i) options[i].key = QString::number(i);
  options_.set(std::move(options));
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

#include "ClaudeCards.h"

#include <utility>

#include "Words.h"

namespace ostrel {

PermissionCardBridge::PermissionCardBridge(const ClaudePermissionRequest& request, GiveClaude give,
                                           QObject* parent)
    : QObject(parent), model_(request), give_(std::move(give)) {}

QString PermissionCardBridge::heading() const { return words::of(model_.heading()); }

QString PermissionCardBridge::detail() const { return words::of(model_.request().detail); }

QString PermissionCardBridge::alwaysLine() const {
  return model_.offersAlways() ? words::of(model_.alwaysLine()) : QString();
}

void PermissionCardBridge::setInstead(const QString& text) {
  if (std::exchange(instead_, text) != text) Q_EMIT insteadChanged();
}

void PermissionCardBridge::tell() {
  if (const auto answer = model_.instead(instead_.toStdString())) give_(model_.request(), *answer);
}

QuestionCardBridge::QuestionCardBridge(const ClaudePermissionRequest& request, GiveClaude give,
                                       QObject* parent)
    : QObject(parent), model_(request), give_(std::move(give)) {
  for (std::size_t i = 0; i < request.questions.size(); ++i) {
    const auto& asked = request.questions[i];
    questions_.append(
        new QuestionBridge({words::of(asked.header), words::of(asked.question), asked.multiSelect},
                           {[this, i](int option) { choose(i, option); },
                            [this, i](const QString& text) { type(i, text); }, [this, i] { focusOwn(i); }},
                           this));
  }
  refresh();
}

QString QuestionCardBridge::heading() const { return words::of(model_.heading()); }

bool QuestionCardBridge::typing() const {
  return questions_[static_cast<qsizetype>(model_.focusedQuestion())]->ownFocused();
}

void QuestionCardBridge::press(Key key) {
  std::optional<ClaudePermissionAnswer> answer;
  switch (key) {
    case Up:
      model_.up();
      break;
    case Down:
      model_.down();
      break;
    case Tab:
      model_.tab();
      break;
    case Return:
      answer = model_.enter();
      break;
  }
  refresh();
  Q_EMIT moved();
  give(answer);
}

void QuestionCardBridge::choose(std::size_t question, int option) {
  const auto place = static_cast<std::size_t>(option);
  model_.choose(question, place);
  model_.focus(question, place);
  refresh();
  Q_EMIT moved();
}

void QuestionCardBridge::type(std::size_t question, const QString& text) {
  model_.setOther(question, text.toStdString());
  refresh();
}

void QuestionCardBridge::focusOwn(std::size_t question) {
  model_.focus(question, model_.request().questions[question].options.size());
  refresh();
}

void QuestionCardBridge::give(const std::optional<ClaudePermissionAnswer>& answer) {
  if (answer) give_(model_.request(), *answer);
}

void QuestionCardBridge::refresh() {
  for (std::size_t i = 0; i < model_.request().questions.size(); ++i) {
    const auto& asked = model_.request().questions[i];
    const bool focused = model_.focusedQuestion() == i;
    std::vector<QuestionBridge::Option> options;
    for (const auto& option : asked.options) {
      const std::size_t place = options.size();
      options.push_back({words::of(option.label), words::of(option.description), model_.isChosen(i, place),
                         focused && model_.highlighted() == place});
    }
    questions_[static_cast<qsizetype>(i)]->show(options, words::of(model_.other(i)),
                                                focused && model_.highlighted() == options.size());
  }
  Q_EMIT changed();
}

}  // namespace ostrel

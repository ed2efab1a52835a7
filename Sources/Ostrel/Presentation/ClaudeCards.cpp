#include "ClaudeCards.h"

#include <utility>

#include "Words.h"

namespace ostrel {

PermissionCardBridge::PermissionCardBridge(const ClaudePermissionRequest& request, Context context,
                                           QObject* parent)
    : RequestCard(std::move(context), request.id, parent), model_(request) {
  diff_.set(request.changes);
  // A change is shown in its place, with its path.
  setWholeSeen(detail().isEmpty());
}

QString PermissionCardBridge::purpose() const { return words::shown(model_.purpose()); }

QString PermissionCardBridge::detail() const {
  return model_.request().changes.empty() ? words::exact(model_.request().detail) : QString();
}

QString PermissionCardBridge::alwaysLine() const {
  return model_.offersAlways() ? words::exact(model_.alwaysLine()) : QString();
}

void PermissionCardBridge::setInstead(const QString& text) {
  if (std::exchange(instead_, text) != text) Q_EMIT insteadChanged();
}

void PermissionCardBridge::tell() {
  if (const auto answer = model_.instead(instead_.toStdString())) give(*answer, model_.request().choices());
}

QuestionCardBridge::QuestionCardBridge(const ClaudePermissionRequest& request, Context context,
                                       QObject* parent)
    : RequestCard(std::move(context), request.id, parent), model_(request) {
  for (std::size_t i = 0; i < request.questions.size(); ++i) {
    const auto& asked = request.questions[i];
    questions_.append(
        new QuestionBridge({words::shown(asked.header), words::shown(asked.question), asked.multiSelect},
                           {[this, i](int option) { choose(i, option); },
                            [this, i](const QString& text) { type(i, text); }, [this, i] { focusOwn(i); }},
                           this));
  }
  refresh();
}

bool QuestionCardBridge::typing() const {
  return questions_[static_cast<qsizetype>(model_.focusedQuestion())]->ownFocused();
}

void QuestionCardBridge::press(Key key) {
  std::optional<RequestAnswer> answer;
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
  send(answer);
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

void QuestionCardBridge::submit() {
  const auto answer = model_.send();
  if (answer || !settled()) return send(answer);
  say(QStringLiteral("Answer each question before submitting."));
  if (!model_.focusMissing()) return;
  refresh();
  Q_EMIT moved();
}

void QuestionCardBridge::send(const std::optional<RequestAnswer>& answer) {
  if (answer) give(*answer, model_.request().choices());
}

void QuestionCardBridge::refresh() {
  for (std::size_t i = 0; i < model_.request().questions.size(); ++i) {
    const auto& asked = model_.request().questions[i];
    const bool focused = model_.focusedQuestion() == i;
    std::vector<OptionRow> options;
    for (const auto& option : asked.options) {
      const std::size_t place = options.size();
      options.push_back({.key = {},
                         .label = words::shown(option.label),
                         .description = words::shown(option.description),
                         .chosen = model_.isChosen(i, place),
                         .highlighted = focused && model_.highlighted() == place});
    }
    const bool own = focused && model_.highlighted() == options.size();
    questions_[static_cast<qsizetype>(i)]->show(std::move(options), words::of(model_.other(i)), own);
  }
  Q_EMIT changed();
}

}  // namespace ostrel

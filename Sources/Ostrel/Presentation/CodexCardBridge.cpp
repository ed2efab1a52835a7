#include "CodexCardBridge.h"

#include <algorithm>
#include <utility>

#include "Runtime/Failure.h"
#include "Words.h"

namespace ostrel {

namespace {

QString orEmpty(const std::optional<std::string>& text) { return words::exact(text.value_or("")); }

}  // namespace

FormFieldBridge::FormFieldBridge(const CodexCard::Field& field, CodexCardModel& model, QObject* parent)
    : QObject(parent), label(words::shown(field.label)), key_(field.key), model_(model) {
  using Kind = CodexCard::Field::Kind;
  placeholder = field.kind == Kind::list ? QStringLiteral("JSON list, e.g. [\"first\", \"second\"]")
                                         : QStringLiteral("Your answer");
  const auto add = [this](const QString& title, std::string value) {
    choices.append(title);
    values_.push_back(std::move(value));
  };
  if (field.kind == Kind::boolean || field.kind == Kind::choice) add(QStringLiteral("Choose"), "");
  if (field.kind == Kind::boolean) {
    add(QStringLiteral("Yes"), "true");
    add(QStringLiteral("No"), "false");
  } else if (field.kind == Kind::choice) {
    for (const auto& option : field.options) add(words::shown(option.label), option.value);
  }
}

QString FormFieldBridge::text() const { return words::of(model_.typed(key_)); }

void FormFieldBridge::setText(const QString& text) {
  if (text == this->text()) return;
  model_.type(key_, text.toStdString());
  Q_EMIT changed();
}

int FormFieldBridge::choice() const {
  const auto found = std::ranges::find(values_, model_.typed(key_));
  return found == values_.end() ? 0 : static_cast<int>(found - values_.begin());
}

void FormFieldBridge::setChoice(int choice) {
  model_.type(key_, values_.at(static_cast<std::size_t>(choice)));
  Q_EMIT changed();
}

CodexCardBridge::CodexCardBridge(const OpenRequest& request, Context context, std::function<void()> open,
                                 QObject* parent)
    : RequestCard(std::move(context), request.id, parent),
      model_(request.codex()->request, request.codex()->card),
      open_(std::move(open)) {
  const CodexCard& card = model_.card();
  for (std::size_t i = 0; i < card.questions.size(); ++i) {
    const auto& asked = card.questions[i];
    questions_.append(new QuestionBridge(
        {words::shown(asked.header), words::shown(asked.question), false, asked.freeText, asked.secret},
        {[this, i](int option) {
           model_.choose(i, static_cast<std::size_t>(option));
           showQuestions();
         },
         [this, i](const QString& text) {
           model_.type(model_.card().questions[i].id, text.toStdString());
           showQuestions();
         },
         {}},
        this));
  }
  for (const auto& field : card.fields) fields_.append(new FormFieldBridge(field, model_, this));
  showQuestions();
  showParts();
}

void CodexCardBridge::show(const CodexAsked& asked) {
  const bool differs = model_.show(asked.card);
  if (differs) showParts();
  if (!differs && asked.sent == sent_ && asked.error == error_) return;
  sent_ = asked.sent;
  error_ = asked.error;
  Q_EMIT changed();
  Q_EMIT problemChanged();
}

QStringList CodexCardBridge::words() const {
  QStringList all;
  for (const std::string& each : model_.card().words) all.append(words::shown(each));
  return all;
}

QString CodexCardBridge::command() const { return orEmpty(model_.card().command); }
QString CodexCardBridge::folder() const { return orEmpty(model_.card().folder); }

QString CodexCardBridge::writeAccess() const {
  const auto& folder = model_.card().writeAccess;
  return folder ? QStringLiteral("Requested write access: ") + words::exact(*folder) : QString();
}

QString CodexCardBridge::changesText() const {
  return model_.card().changes.empty() ? orEmpty(model_.card().changesText) : QString();
}

QString CodexCardBridge::access() const { return orEmpty(model_.card().access); }

QString CodexCardBridge::tool() const {
  return model_.card().tool ? words::shown(model_.card().tool->name) : QString();
}

QString CodexCardBridge::toolArguments() const {
  return model_.card().tool ? words::exact(model_.card().tool->arguments) : QString();
}

QString CodexCardBridge::link() const { return words::exact(model_.card().link); }

QString CodexCardBridge::unsupported() const { return words::shown(model_.card().unsupported); }

const RequestChoice* CodexCardBridge::choiceOf(std::string_view id) const {
  const auto& choices = model_.card().choices;
  const auto found = std::ranges::find(choices, id, &RequestChoice::id);
  return found == choices.end() ? nullptr : &*found;
}

QString CodexCardBridge::submitTitle() const {
  const RequestChoice* const submit = choiceOf("submit");
  return submit ? words::shown(submit->title) : QString();
}

bool CodexCardBridge::submitGrants() const {
  const RequestChoice* const submit = choiceOf("submit");
  return submit && submit->grants;
}

bool CodexCardBridge::linkOpened() const { return choiceOf("done") != nullptr; }

QString CodexCardBridge::problem() const {
  const QString own = RequestCard::problem();
  return own.isEmpty() ? words::shown(error_) : own;
}

void CodexCardBridge::choose(const QString& key) {
  for (const RequestChoice& choice : model_.card().choices) {
    if (words::of(choice.id) == key) return pick(choice.id);
  }
}

void CodexCardBridge::submit() {
  if (choiceOf("submit")) send(model_.submit());
}

void CodexCardBridge::send(const RequestAnswer& answer) {
  if (!sent_) give(answer, model_.card().choices);
}

void CodexCardBridge::openLink() {
  try {
    open_();
    say({});
  } catch (const Failure& failure) {
    say(words::shown(failure.message()));
  }
}

void CodexCardBridge::showQuestions() {
  for (std::size_t i = 0; i < model_.card().questions.size(); ++i) {
    const auto& asked = model_.card().questions[i];
    std::vector<OptionRow> options;
    for (const auto& option : asked.options) {
      options.push_back({.key = {},
                         .label = words::shown(option.label),
                         .description = words::shown(option.description),
                         .chosen = model_.isChosen(i, options.size())});
    }
    questions_[static_cast<qsizetype>(i)]->show(std::move(options), words::of(model_.typed(asked.id)), false);
  }
}

void CodexCardBridge::showParts() {
  diff_.set(model_.card().changes);
  std::vector<ChoiceButtonRow> rows;
  for (const RequestChoice& choice : model_.card().choices) {
    // These have buttons of their own.
    if (choice.id == "submit" || choice.id == "skip" || choice.id == "done") continue;
    const QString id = words::of(choice.id);
    rows.push_back({id, words::exact(choice.title), keyOf(id), choice.grants});
  }
  choices_.set(std::move(rows));
}

}  // namespace ostrel

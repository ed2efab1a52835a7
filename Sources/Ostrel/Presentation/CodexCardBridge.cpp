#include "CodexCardBridge.h"

#include <algorithm>
#include <utility>

#include "Codex/CodexDiff.h"
#include "Words.h"

namespace ostrel {

namespace {

QString orEmpty(const std::optional<std::string>& text) { return words::of(text.value_or("")); }

QString nameOf(DiffLine::Kind kind) {
  switch (kind) {
    case DiffLine::Kind::added:
      return QStringLiteral("added");
    case DiffLine::Kind::removed:
      return QStringLiteral("removed");
    case DiffLine::Kind::place:
      return QStringLiteral("place");
    case DiffLine::Kind::same:
      break;
  }
  return QStringLiteral("same");
}

QString shown(const std::string& line) {
  return words::of(line).replace(QLatin1Char('\t'), QStringLiteral("    "));
}

}  // namespace

FormFieldBridge::FormFieldBridge(const CodexCard::Field& field, CodexCardModel& model, QObject* parent)
    : QObject(parent), label(words::of(field.label)), key_(field.key), model_(model) {
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
    for (const auto& option : field.options) add(words::of(option.label), option.value);
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

CodexCardBridge::CodexCardBridge(const CodexRequest& request, Operations operations, QObject* parent)
    : QObject(parent), model_(request), operations_(std::move(operations)) {
  const CodexCard& card = model_.card();
  for (std::size_t i = 0; i < card.questions.size(); ++i) {
    const auto& asked = card.questions[i];
    questions_.append(new QuestionBridge(
        {words::of(asked.header), words::of(asked.question), false, asked.freeText, asked.secret},
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
  std::vector<Row> rows;
  for (const auto& choice : card.choices) rows.push_back({words::of(choice.id), {words::of(choice.title)}});
  choices_.set(rows);
  showQuestions();
  showDiff();
}

void CodexCardBridge::show(const std::optional<std::string>& item, bool sent, const std::string& replyError) {
  const bool differs = model_.setItem(item);
  if (differs) showDiff();
  if (!differs && sent == sent_ && replyError == replyError_) return;
  sent_ = sent;
  replyError_ = replyError;
  Q_EMIT changed();
}

QString CodexCardBridge::title() const { return words::of(model_.card().title); }

QStringList CodexCardBridge::words() const {
  QStringList all;
  for (const std::string& each : model_.card().words) all.append(words::of(each));
  return all;
}

QString CodexCardBridge::command() const { return orEmpty(model_.card().command); }
QString CodexCardBridge::folder() const { return orEmpty(model_.card().folder); }

QString CodexCardBridge::writeAccess() const {
  const auto& folder = model_.card().writeAccess;
  return folder ? QStringLiteral("Requested write access: ") + words::of(*folder) : QString();
}

QString CodexCardBridge::changesText() const {
  return model_.card().changes.empty() ? orEmpty(model_.card().changesText) : QString();
}

QString CodexCardBridge::access() const { return orEmpty(model_.card().access); }

QString CodexCardBridge::tool() const {
  return model_.card().tool ? words::of(model_.card().tool->name) : QString();
}

QString CodexCardBridge::toolArguments() const {
  return model_.card().tool ? words::of(model_.card().tool->arguments) : QString();
}

QString CodexCardBridge::link() const { return words::of(model_.card().link); }

QString CodexCardBridge::unsupported() const { return words::of(model_.card().unsupported); }

QString CodexCardBridge::submitTitle() const {
  const CodexCard::Step step = model_.card().step;
  const bool enters = step == CodexCard::Step::questions || step == CodexCard::Step::form;
  return enters ? words::of(model_.submitTitle()) : QString();
}

QString CodexCardBridge::problem() const {
  return words::of(model_.validation() ? *model_.validation() : replyError_);
}

void CodexCardBridge::choose(const QString& key) {
  const auto& choices = model_.card().choices;
  const auto found =
      std::ranges::find_if(choices, [&](const auto& choice) { return words::of(choice.id) == key; });
  if (found != choices.end()) give(found->result);
}

void CodexCardBridge::submit() {
  auto result = model_.submit();
  Q_EMIT changed();
  if (result) give(std::move(*result));
}

void CodexCardBridge::skip() { give(CodexForm::skippedQuestions()); }

void CodexCardBridge::openLink() {
  operations_.open(model_.card().link);
  model_.linkOpened();
  Q_EMIT changed();
}

void CodexCardBridge::linkDone() { give(CodexForm::stepDone()); }

void CodexCardBridge::give(std::string result) {
  if (!sent_) operations_.give(model_.request(), std::move(result));
}

void CodexCardBridge::showQuestions() {
  for (std::size_t i = 0; i < model_.card().questions.size(); ++i) {
    const auto& asked = model_.card().questions[i];
    std::vector<QuestionBridge::Option> options;
    for (const auto& option : asked.options) {
      options.push_back(
          {words::of(option.label), words::of(option.description), model_.isChosen(i, options.size())});
    }
    questions_[static_cast<qsizetype>(i)]->show(options, words::of(model_.typed(asked.id)), false);
  }
}

void CodexCardBridge::showDiff() {
  std::vector<Row> rows;
  const auto add = [&](const QString& kind, const QString& text) {
    rows.push_back({QString::number(rows.size()), {kind, text}});
  };
  for (const CodexCard::Change& change : model_.card().changes) {
    const QString path = words::of(change.path);
    add(QStringLiteral("file"),
        change.kind.empty() ? path : words::of(change.kind) + QLatin1Char(' ') + path);
    for (const DiffLine& line : diffLines(change)) add(nameOf(line.kind), shown(line.text));
  }
  diff_.set(rows);
}

}  // namespace ostrel

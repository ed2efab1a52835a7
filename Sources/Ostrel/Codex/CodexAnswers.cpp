#include "Codex/CodexAnswers.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include <fmt/format.h>

#include "Codex/CodexForm.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel::codexAnswers {

namespace {

using Step = CodexCard::Step;

// Whether Codex may do something by this result that it may not do otherwise. What is no known refusal
// grants.
bool grants(const std::string& result) {
  const Json value = json::parse(result).value_or(Json());
  for (const char* const key : {"decision", "action"}) {
    const auto word = json::string(value, key);
    if (word == "decline" || word == "denied" || word == "cancel" || word == "abort") return false;
  }
  const Json* const permissions = json::member(value, "permissions");
  return !permissions || !permissions->empty();
}

std::string submitTitle(const CodexCard& card) {
  if (card.step == Step::questions) return "Submit answers";
  // To send it is to let the tool run, and should say so.
  return card.tool && card.fields.empty() ? "Allow once" : "Submit form";
}

// The one text that was entered; of a list its JSON.
std::string entered(const std::vector<std::string>& texts, const CodexCard::Field* field) {
  if (field && field->kind == CodexCard::Field::Kind::list) {
    const bool typed = texts.size() == 1 && text::trim(texts.front()).starts_with('[');
    return typed ? texts.front() : json::dump(Json(texts));
  }
  return texts.empty() ? std::string() : texts.front();
}

void check(const CodexCard::Question& question, const std::vector<std::string>& texts) {
  if (texts.size() > 1) throw Failure(fmt::format("Give one answer to \"{}\".", question.question));
  const bool offered =
      question.freeText || texts.empty() || text::trim(texts.front()).empty() ||
      std::ranges::find(question.options, texts.front(), &CodexCard::Option::value) != question.options.end();
  if (!offered) throw Failure(fmt::format("Choose one of the options for \"{}\".", question.question));
}

CodexForm::Answers answersIn(const CodexCard& card, const RequestAnswer& answer) {
  CodexForm::Answers typed;
  for (const auto& [key, texts] : answer.entries) {
    const auto question = std::ranges::find(card.questions, key, &CodexCard::Question::id);
    const auto field = std::ranges::find(card.fields, key, &CodexCard::Field::key);
    if (question == card.questions.end() && field == card.fields.end())
      throw Failure(fmt::format("\"{}\" is not one of the {}.", key,
                                card.step == Step::questions ? "questions" : "fields"));
    if (question != card.questions.end()) check(*question, texts);
    const bool list = field != card.fields.end() && field->kind == CodexCard::Field::Kind::list;
    if (field != card.fields.end() && !list && texts.size() > 1)
      throw Failure(fmt::format("Give one answer to \"{}\".", field->label));
    typed[key] = entered(texts, field == card.fields.end() ? nullptr : &*field);
  }
  return typed;
}

std::string submitted(const CodexRequest& request, const CodexCard& card, const RequestAnswer& answer) {
  const Json params = json::parse(request.payload).value_or(Json());
  const CodexForm::Answers typed = answersIn(card, answer);
  if (card.step == Step::questions) {
    const Json* const questions = json::member(params, "questions");
    return CodexForm::questionsResult(questions ? *questions : Json::array(), typed);
  }
  const Json* const schema = json::member(params, "requestedSchema");
  return CodexForm::formResult(schema ? *schema : Json::object(), typed);
}

}  // namespace

std::vector<RequestChoice> choices(const CodexRequest& request, const CodexCard& card, bool linkOpened) {
  std::vector<RequestChoice> all;
  if (card.step == Step::questions || card.step == Step::form) {
    all.push_back({.id = "submit",
                   .title = submitTitle(card),
                   .grants = card.tool.has_value(),
                   .takesEntries = !card.questions.empty() || !card.fields.empty()});
  }
  if (card.skippable) all.push_back({.id = "skip", .title = "Skip questions"});
  if (card.step == Step::link && linkOpened)
    all.push_back({.id = "done", .title = "I’ve completed this step"});
  for (CodexRequest::Choice& choice : request.choices())
    all.push_back(
        {.id = std::move(choice.id), .title = std::move(choice.title), .grants = grants(choice.result)});
  return all;
}

std::string result(const CodexRequest& request, const CodexCard& card, bool linkOpened,
                   const RequestAnswer& answer) {
  const auto offered = choices(request, card, linkOpened);
  const auto choice = std::ranges::find(offered, answer.choice, &RequestChoice::id);
  if (choice == offered.end()) {
    if (answer.choice == "done" && card.step == Step::link) throw Failure("Open the link first.");
    throw Failure("This choice is not on offer.");
  }
  if (!choice->takesEntries && !answer.entries.empty()) throw Failure("This choice takes no answers.");
  if (answer.message) throw Failure("Codex takes no message with its answer.");
  if (choice->id == "submit") return submitted(request, card, answer);
  if (choice->id == "skip") return CodexForm::skippedQuestions();
  if (choice->id == "done") return CodexForm::stepDone();
  const auto decisions = request.choices();
  return std::ranges::find(decisions, choice->id, &CodexRequest::Choice::id)->result;
}

}  // namespace ostrel::codexAnswers

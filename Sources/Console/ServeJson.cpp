#include "ServeJson.h"

#include <algorithm>
#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>

#include "Codex/CodexForm.h"
#include "Runtime/Failure.h"

namespace ostrel::console {

namespace {

template <class T>
Json orNull(const std::optional<T>& value) {
  return value ? Json(*value) : Json();
}

Json asObject(const CodexCard::Option& option);
Json asObject(const CodexCard::Change& change);
Json asObject(const CodexCard::Question& question);
Json asObject(const CodexCard::Field& field);
Json asObject(const CodexRequest::Choice& choice);

template <class T>
Json listOf(const std::vector<T>& values) {
  Json list = Json::array();
  for (const T& value : values) list.push_back(asObject(value));
  return list;
}

Json asObject(const CodexCard::Option& option) {
  return {{"value", option.value}, {"label", option.label}, {"description", option.description}};
}

Json asObject(const CodexCard::Change& change) {
  return {{"path", change.path}, {"kind", change.kind}, {"diff", change.diff}};
}

Json asObject(const CodexCard::Question& question) {
  return {{"id", question.id},
          {"header", question.header},
          {"question", question.question},
          {"options", listOf(question.options)},
          {"freeText", question.freeText},
          {"secret", question.secret}};
}

Json asObject(const CodexCard::Field& field) {
  constexpr std::string_view kinds[] = {"text", "boolean", "choice", "list"};
  return {{"key", field.key},
          {"label", field.label},
          {"kind", kinds[static_cast<std::size_t>(field.kind)]},
          {"options", listOf(field.options)},
          {"required", field.required}};
}

Json asObject(const CodexRequest::Choice& choice) { return {{"id", choice.id}, {"title", choice.title}}; }

}  // namespace

std::string requiredText(const Json& request, std::string_view key) {
  const auto value = json::string(request, key);
  if (!value) throw Failure(fmt::format("\"{}\" is missing.", key));
  return *value;
}

Json asObject(const ClaudePermissionRequest& request) {
  Json questions = Json::array();
  for (const auto& question : request.questions) {
    Json options = Json::array();
    for (const auto& option : question.options)
      options.push_back({{"label", option.label}, {"description", option.description}});
    questions.push_back({{"question", question.question},
                         {"header", question.header},
                         {"multiSelect", question.multiSelect},
                         {"options", std::move(options)}});
  }
  return {{"id", request.id},       {"session", request.sessionID},     {"tool", request.tool},
          {"title", request.title}, {"detail", request.detail},         {"alwaysRules", request.alwaysRules},
          {"agent", nullptr},       {"questions", std::move(questions)}};
}

ClaudePermissionAnswer answerIn(const Json& request) {
  using Answer = ClaudePermissionAnswer;
  if (const Json* const answers = json::member(request, "answers")) {
    Answer::Answers given;
    if (!answers->is_object()) throw Failure("\"answers\" must be an object of lists of texts.");
    for (const auto& [question, chosen] : answers->items()) {
      std::vector<std::string>& texts = given.chosen[question];
      for (const Json& each : chosen.is_array() ? chosen : Json::array({chosen})) {
        if (!each.is_string()) throw Failure("\"answers\" must be an object of lists of texts.");
        texts.push_back(each.get<std::string>());
      }
    }
    return {given};
  }
  const std::string decision = requiredText(request, "decision");
  if (decision == "allow") return {Answer::Allow{}};
  if (decision == "always") return {Answer::AllowAlways{}};
  if (decision == "deny") return {Answer::Deny{json::string(request, "message")}};
  throw Failure(fmt::format("\"{}\" is no decision: \"allow\", \"always\" or \"deny\".", decision));
}

Json asObject(const CodexCard& card) {
  constexpr std::string_view steps[] = {"none", "questions", "form", "link", "unsupported"};
  return {{"title", card.title},
          {"words", card.words},
          {"command", orNull(card.command)},
          {"folder", orNull(card.folder)},
          {"writeAccess", orNull(card.writeAccess)},
          {"changes", listOf(card.changes)},
          {"access", orNull(card.access)},
          {"tool", card.tool ? Json{{"name", card.tool->name}, {"arguments", card.tool->arguments}} : Json()},
          {"step", steps[static_cast<std::size_t>(card.step)]},
          {"questions", listOf(card.questions)},
          {"skippable", card.skippable},
          {"fields", listOf(card.fields)},
          {"link", card.link},
          {"unsupported", card.unsupported},
          {"choices", listOf(card.choices)}};
}

// What goes back to Codex: the result of a choice, or what was typed.
std::string codexResultIn(const Json& request, const CodexRequest& asked) {
  if (const auto choice = json::string(request, "choice")) {
    const auto choices = asked.choices();
    const auto chosen = std::ranges::find(choices, *choice, &CodexRequest::Choice::id);
    if (chosen == choices.end()) throw Failure("This choice is not on offer.");
    return chosen->result;
  }
  if (json::boolean(request, "skip").value_or(false)) return CodexForm::skippedQuestions();
  if (json::boolean(request, "done").value_or(false)) return CodexForm::stepDone();
  const Json* const answers = json::member(request, "answers");
  if (!answers || !answers->is_object())
    throw Failure("\"choice\", \"answers\", \"skip\" or \"done\" is missing.");
  CodexForm::Answers typed;
  for (const auto& [key, value] : answers->items())
    typed[key] = value.is_string() ? value.get<std::string>() : json::dump(value);
  const Json payload = json::parse(asked.payload).value_or(Json::object());
  if (const Json* const questions = json::member(payload, "questions"))
    return CodexForm::questionsResult(*questions, typed);
  const Json* const schema = json::member(payload, "requestedSchema");
  return CodexForm::formResult(schema ? *schema : Json::object(), typed);
}

}  // namespace ostrel::console

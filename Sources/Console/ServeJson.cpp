#include "ServeJson.h"

#include <optional>
#include <string_view>
#include <vector>

#include <fmt/format.h>

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
Json asObject(const RequestChoice& choice);

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

Json asObject(const RequestChoice& choice) {
  return {{"id", choice.id}, {"title", choice.title}, {"takesAnswers", choice.takesEntries}};
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
  return {{"session", request.sessionID},
          {"tool", request.tool},
          {"title", request.title},
          {"detail", request.detail},
          {"changes", listOf(request.changes)},
          {"alwaysRules", request.alwaysRules},
          {"questions", std::move(questions)}};
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
          {"unsupported", card.unsupported}};
}

Json asObject(const CodexAsked& asked) {
  Json object = asObject(asked.card);
  object["thread"] = asked.request.threadID;
  object["sent"] = asked.sent;
  object["error"] = asked.error.empty() ? Json() : Json(asked.error);
  return object;
}

// The texts that one entry stands for: a text, a list of texts, or another value as its JSON.
std::vector<std::string> textsOf(const Json& value) {
  if (value.is_string()) return {value.get<std::string>()};
  if (!value.is_array()) return {json::dump(value)};
  std::vector<std::string> texts;
  for (const Json& each : value) {
    if (!each.is_string()) throw Failure("\"answers\" must be an object of texts or lists of texts.");
    texts.push_back(each.get<std::string>());
  }
  return texts;
}

// The choice that an operation names, in the words of either agent.
std::string choiceIn(const Json& request) {
  std::vector<std::string> named;
  if (auto choice = json::string(request, "choice")) named.push_back(*std::move(choice));
  if (const auto decision = json::string(request, "decision")) {
    if (decision != "allow" && decision != "always" && decision != "deny")
      throw Failure(fmt::format("\"{}\" is no decision: \"allow\", \"always\" or \"deny\".", *decision));
    named.push_back(*decision);
  }
  for (const char* const flag : {"skip", "done"}) {
    if (json::boolean(request, flag).value_or(false)) named.emplace_back(flag);
  }
  if (named.size() > 1) throw Failure("An answer is one of \"choice\", \"decision\", \"skip\" and \"done\".");
  if (named.size() == 1) return named.front();
  if (!json::member(request, "answers"))
    throw Failure("\"choice\", \"decision\", \"answers\", \"skip\" or \"done\" is missing.");
  return {};
}

}  // namespace

std::string requiredText(const Json& request, std::string_view key) {
  const auto value = json::string(request, key);
  if (!value) throw Failure(fmt::format("\"{}\" is missing.", key));
  return *value;
}

Json asObject(const OpenRequest& request) {
  Json object = std::visit([](const auto& asked) { return asObject(asked); }, request.asked);
  object["id"] = request.id;
  object["agent"] = orNull(request.agent);
  object["choices"] = listOf(request.choices());
  return object;
}

RequestAnswer answerIn(const Json& request) {
  RequestAnswer answer{.choice = choiceIn(request), .message = json::string(request, "message")};
  const Json* const answers = json::member(request, "answers");
  if (!answers) return answer;
  if (!answers->is_object()) throw Failure("\"answers\" must be an object of texts or lists of texts.");
  for (const auto& [key, value] : answers->items()) answer.entries[key] = textsOf(value);
  return answer;
}

}  // namespace ostrel::console

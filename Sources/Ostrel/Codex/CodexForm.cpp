#include "Codex/CodexForm.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <functional>
#include <optional>

#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel::CodexForm {

namespace {

// The limits are given where they are numbers.
bool within(const Json& rules, const char* least, const char* most, double value) {
  const auto low = json::number(rules, least);
  const auto high = json::number(rules, most);
  return (!low || value >= *low) && (!high || value <= *high);
}

bool within(const Json& rules, const char* least, const char* most, std::size_t count) {
  return within(rules, least, most, static_cast<double>(count));
}

// Whether `text` is among the entries of `list` or the "const" values of `titled`, where these are given.
bool allowed(const Json& rules, const char* list, const char* titled, const std::string& text) {
  const Json* const entries = json::member(rules, list);
  if (entries && entries->is_array() && std::ranges::find(*entries, Json(text)) == entries->end())
    return false;
  const Json* const options = json::member(rules, titled);
  return !options || !options->is_array() || std::ranges::any_of(*options, [&](const Json& option) {
    return json::string(option, "const") == text;
  });
}

std::optional<double> finiteNumber(std::string_view text) {
  if (text.starts_with('+') && text.find('-') != 1) text.remove_prefix(1);
  double value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value)) return std::nullopt;
  return value;
}

// A whole number is written without a fraction, which a reader of integers takes in any case.
Json numberValue(double value) {
  constexpr double kExact = 9'007'199'254'740'992.0;  // 2^53
  if (std::trunc(value) == value && std::fabs(value) <= kExact) return static_cast<std::int64_t>(value);
  return value;
}

Json textValue(const Json& rules, const std::string& text, const std::string& label) {
  if (!within(rules, "minLength", "maxLength", text::characterCount(text)))
    throw Failure("Check the length of " + label + ".");
  if (!allowed(rules, "enum", "oneOf", text)) throw Failure("Choose an option for " + label + ".");
  return text;
}

Json listValue(const Json& rules, const std::string& text, const std::string& label) {
  const auto list = json::parse(text);
  if (!list || !list->is_array() || !std::ranges::all_of(*list, [](const Json& e) { return e.is_string(); }))
    throw Failure("Enter a JSON list of choices for " + label + ".");
  const Json* const items = json::member(rules, "items");
  const bool valid = within(rules, "minItems", "maxItems", list->size()) &&
                     (!items || std::ranges::all_of(*list, [&](const Json& entry) {
                       return allowed(*items, "enum", "anyOf", entry.get<std::string>());
                     }));
  if (!valid) throw Failure("Choose valid options for " + label + ".");
  return *list;
}

Json valueOf(const Json& rules, const std::string& text, const std::string& label) {
  const auto type = json::string(rules, "type");
  if (type == "string") return textValue(rules, text, label);
  if (type == "boolean") {
    if (text != "true" && text != "false") throw Failure("Choose Yes or No for " + label + ".");
    return text == "true";
  }
  if (type == "number" || type == "integer") {
    const auto value = finiteNumber(text);
    if (!value || !within(rules, "minimum", "maximum", *value) ||
        (type == "integer" && std::trunc(*value) != *value))
      throw Failure("Enter a valid number for " + label + ".");
    return numberValue(*value);
  }
  if (type == "array") return listValue(rules, text, label);
  throw Failure("Unsupported field type for " + label + "; nothing was submitted.");
}

std::string typed(const Answers& answers, const std::string& key) {
  const auto found = answers.find(key);
  return found == answers.end() ? std::string() : found->second;
}

std::string accepted(const Json& content) {
  return json::dump({{"action", "accept"}, {"content", content}, {"_meta", nullptr}});
}

}  // namespace

bool isRequired(const Json& schema, const std::string& key) {
  const Json* const required = json::member(schema, "required");
  return required && required->is_array() && std::ranges::find(*required, Json(key)) != required->end();
}

Json values(const Json& schema, const Answers& answers) {
  const Json* const properties = json::member(schema, "properties");
  if (!properties || !properties->is_object()) throw Failure("This form has no supported fields.");
  Json content = Json::object();
  for (const auto& [key, rules] : properties->items()) {
    const std::string label = json::string(rules, "title").value_or(key);
    const std::string entry = typed(answers, key);
    const std::string text(text::trim(entry));
    if (!text.empty()) {
      content[key] = valueOf(rules, text, label);
    } else if (isRequired(schema, key)) {
      throw Failure("Complete " + label + ".");
    }
  }
  return content;
}

std::string formResult(const Json& schema, const Answers& answers) {
  return accepted(values(schema, answers));
}

std::string questionsResult(const Json& questions, const Answers& answers) {
  Json result = Json::object();
  for (const Json& question : questions) {
    if (!question.is_object()) continue;
    const auto id = json::string(question, "id");
    const std::string entry = id ? typed(answers, *id) : std::string();
    if (text::trim(entry).empty()) throw Failure("Answer each question before submitting.");
    result[*id] = {{"answers", Json::array({entry})}};
  }
  return json::dump({{"answers", result}});
}

std::string skippedQuestions() { return R"({"answers":{}})"; }

std::string stepDone() { return accepted(nullptr); }

}  // namespace ostrel::CodexForm

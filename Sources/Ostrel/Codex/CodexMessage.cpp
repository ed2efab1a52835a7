#include "Codex/CodexMessage.h"

#include <simdjson.h>

#include "Runtime/Json.h"

namespace ostrel {

std::optional<std::vector<std::pair<std::string, std::string_view>>> jsonMembers(std::string& bytes) {
  namespace od = simdjson::ondemand;
  bytes.reserve(bytes.size() + simdjson::SIMDJSON_PADDING);
  od::parser parser;
  od::document document;
  od::object object;
  if (parser.iterate(bytes.data(), bytes.size(), bytes.capacity()).get(document) ||
      document.get_object().get(object))
    return std::nullopt;
  std::vector<std::pair<std::string, std::string_view>> members;
  for (auto result : object) {
    od::field field;
    std::string_view key, raw;
    if (std::move(result).get(field) || field.unescaped_key().get(key) ||
        simdjson::to_json_string(field.value()).get(raw))
      return std::nullopt;
    members.emplace_back(key, raw);
  }
  // Nothing may stand behind the object.
  if (document.current_location().error() != simdjson::OUT_OF_BOUNDS) return std::nullopt;
  return members;
}

std::optional<CodexMessage> CodexMessage::parse(std::string& bytes) {
  const auto members = jsonMembers(bytes);
  CodexMessage message;
  if (!members) {
    const auto value = json::parse(bytes);
    if (!value || value->is_object()) return std::nullopt;
    return message;
  }
  for (const auto& [key, value] : *members) {
    if (key == "id") message.id = value;
    if (key == "params") message.params = value;
    if (key == "result") message.result = value;
    if (key == "error") message.error = value;
    if (key != "method") continue;
    message.hasMethod = true;
    const auto text = json::parse(value);
    message.method = text && text->is_string() ? text->get<std::string>() : std::string();
  }
  return message;
}

std::optional<std::string> CodexMessage::wireID(std::string_view value) {
  const auto parsed = json::parse(value);
  if (!parsed) return std::nullopt;
  if (parsed->is_number()) return std::string(value);
  if (parsed->is_string()) return json::dump(*parsed);
  return std::nullopt;
}

}  // namespace ostrel

#include "Runtime/Json.h"

#include <limits>

namespace ostrel::json {

namespace {

// Nesting that no peer of ours uses, and that recursive destruction survives on a small thread stack.
constexpr int kMaxDepth = 512;

}  // namespace

std::optional<Json> parse(std::string_view bytes) {
  // The parser takes a zero byte for the end, whatever follows.
  if (bytes.find('\0') != std::string_view::npos) return std::nullopt;
  bool tooDeep = false;
  const auto depthGuard = [&](int depth, Json::parse_event_t event, Json&) {
    if (depth > kMaxDepth &&
        (event == Json::parse_event_t::object_start || event == Json::parse_event_t::array_start)) {
      tooDeep = true;
    }
    return !tooDeep;
  };
  Json value = Json::parse(bytes.begin(), bytes.end(), depthGuard, /*allow_exceptions=*/false);
  if (tooDeep || value.is_discarded()) return std::nullopt;
  return value;
}

std::string dump(const Json& value) { return value.dump(-1, ' ', false, Json::error_handler_t::replace); }

std::string dumpPretty(const Json& value) {
  return value.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

const Json* member(const Json& object, std::string_view key) {
  if (!object.is_object()) return nullptr;
  const auto found = object.find(key);
  return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> string(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

std::optional<std::int64_t> integer(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value || !value->is_number_integer()) return std::nullopt;
  if (value->is_number_unsigned() &&
      value->get<std::uint64_t>() > std::uint64_t{std::numeric_limits<std::int64_t>::max()})
    return std::nullopt;
  return value->get<std::int64_t>();
}

std::optional<double> number(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value || !value->is_number()) return std::nullopt;
  return value->get<double>();
}

std::optional<bool> boolean(const Json& object, std::string_view key) {
  const Json* value = member(object, key);
  if (!value || !value->is_boolean()) return std::nullopt;
  return value->get<bool>();
}

}  // namespace ostrel::json

// JSON values for records of a few kilobytes (nlohmann's), with the readings that the product shares.
// Bulk JSON Lines go through simdjson where they are read.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace ostrel {

using Json = nlohmann::json;

namespace json {

// The value of `bytes`, or nothing when they are not one JSON value (bad UTF-8 counts as bad).
std::optional<Json> parse(std::string_view bytes);

// Compact text with sorted keys. Ill-formed UTF-8 in strings is repaired, never thrown at the caller.
std::string dump(const Json& value);
// The same over several indented lines, with a final newline.
std::string dumpPretty(const Json& value);

// A member of an object by key: null where `object` is no object or lacks the key.
const Json* member(const Json& object, std::string_view key);
// A member of the given type, otherwise nothing. An integer does not count as a boolean, nor a text as a
// number.
std::optional<std::string> string(const Json& object, std::string_view key);
std::optional<std::int64_t> integer(const Json& object, std::string_view key);
std::optional<double> number(const Json& object, std::string_view key);
std::optional<bool> boolean(const Json& object, std::string_view key);

}  // namespace json
}  // namespace ostrel

#include "Platform/Preferences.h"

namespace ostrel {

bool Preferences::boolean(std::string_view key) const {
  const auto value = object(key);
  return value && value->is_boolean() && value->get<bool>();
}

std::optional<std::string> Preferences::string(std::string_view key) const {
  const auto value = object(key);
  if (!value || !value->is_string()) return std::nullopt;
  return value->get<std::string>();
}

long long Preferences::integer(std::string_view key) const {
  const auto value = object(key);
  return value && value->is_number_integer() ? value->get<long long>() : 0;
}

}  // namespace ostrel

#include "Platform/Environment.h"

#include <algorithm>
namespace ostrel {

std::optional<std::string> Environment::variable(std::string_view name) const {
  const auto found = variables.find(name);
  if (found == variables.end()) return std::nullopt;
  return found->second;
}

std::filesystem::path Environment::folder(std::string_view variableName, std::string_view folderName) const {
  const auto value = variable(variableName);
  return value && !value->empty() ? std::filesystem::path(*value) : home / folderName;
}

bool Environment::hasArgument(std::string_view exact) const {
  return std::ranges::find(arguments, exact) != arguments.end();
}

}  // namespace ostrel

#include "App/Launch.h"

#include <algorithm>
#include <ranges>

namespace ostrel::launch {

bool isFixture(const std::vector<std::string>& arguments) {
  return std::ranges::any_of(arguments, [](const std::string& argument) {
    return argument.starts_with("--check-") || argument.starts_with("--snapshot");
  });
}

bool isTestRun(const std::vector<std::string>& arguments) {
  return std::ranges::any_of(arguments | std::views::drop(1),
                             [](const std::string& argument) { return argument.starts_with("--"); });
}

}  // namespace ostrel::launch

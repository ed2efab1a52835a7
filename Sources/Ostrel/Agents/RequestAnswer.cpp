#include "Agents/RequestAnswer.h"

#include <algorithm>
#include <cstddef>
#include <utility>

namespace ostrel {

std::vector<std::string> choiceKeys(const std::vector<RequestChoice>& choices) {
  std::vector<std::string> keys(choices.size());
  const bool decides = std::ranges::any_of(choices, &RequestChoice::grants) &&
                       std::ranges::none_of(choices, &RequestChoice::takesEntries);
  if (!decides) return keys;
  bool refused = false;
  int granted = 0;
  for (std::size_t i = 0; i < choices.size(); ++i) {
    if (choices[i].grants) {
      if (granted < 2) keys[i] = granted == 0 ? "Y" : "A";
      ++granted;
    } else if (!std::exchange(refused, true)) {
      keys[i] = "N";
    }
  }
  return keys;
}

}  // namespace ostrel

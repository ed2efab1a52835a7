// Whatever stands in the user's settings file is refused, or edited to exactly the value that the edit of its
// value gives; putting the hook in once more changes nothing, and on after off gives the same bytes again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Claude/ClaudeSettings.h"
#include "Require.h"

using namespace ostrel;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const std::string command = "exec 'o' --permission-hook";
  const auto root = claudeSettings::parse(text);
  if (root && claudeSettings::wrongKind(*root)) {
    require(claudeSettings::editText(text, true, command) == text);
    return 0;
  }
  std::string edited[2];
  for (const bool on : {false, true}) {
    const auto result = claudeSettings::editText(text, on, command);
    require(result.has_value() == root.has_value());
    if (!result) return 0;
    const auto value = claudeSettings::parse(*result);
    require(value == claudeSettings::edited(*root, on, command));
    require(claudeSettings::missing(*value, command).empty() == on);
    require(claudeSettings::ourCommand(*value).has_value() == on);
    require(claudeSettings::editText(*result, on, command) == result);
    edited[on ? 1 : 0] = *result;
  }
  // From a file that was once without the hook, on and off lead back and forth between the same two texts.
  const auto on = claudeSettings::editText(edited[0], true, command);
  const auto off = claudeSettings::editText(*on, false, command);
  require(claudeSettings::editText(*off, true, command) == on);
  return 0;
}

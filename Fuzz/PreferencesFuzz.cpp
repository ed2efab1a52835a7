// Any bytes in a preference file are either understood, and then kept through every later write, or set
// aside.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Platform/Linux/PreferenceFile.h"
#include "Require.h"

using namespace ostrel;

// The file, and after a record separator a second document: what this program and another change meanwhile.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const std::size_t separator = bytes.find('\x1e');
  const auto values = parsePreferences(bytes.substr(0, separator));
  if (!values) return 0;
  const std::string written = encodePreferences(*values);
  require(parsePreferences(written) == values);
  require(encodePreferences(*parsePreferences(written)) == written);

  if (separator == std::string_view::npos) return 0;
  const auto later = parsePreferences(bytes.substr(separator + 1));
  if (!later) return 0;
  PreferenceChanges changes;
  for (const auto& [key, value] : *later) {
    changes.emplace(key, value.is_boolean() ? std::nullopt : std::optional(value));
  }
  PreferenceMap merged = *values;
  applyChanges(merged, changes);
  const auto read = parsePreferences(encodePreferences(merged));
  require(read == merged);
  for (const auto& [key, value] : *values) {
    if (!changes.contains(key)) require(merged.at(key) == value);
  }
  for (const auto& [key, change] : changes) {
    require(merged.contains(key) == change.has_value());
    if (change) require(merged.at(key) == *change);
  }
  return 0;
}

// The preference store as a port: keys and values that survive the program.
//
// Reads answer from memory. Values are JSON values; raw data is held as a text. Main thread only, but for
// `reread`.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Runtime/Json.h"

namespace ostrel {

using PreferenceMap = std::map<std::string, Json, std::less<>>;

class Preferences {
 public:
  Preferences() = default;
  Preferences(const Preferences&) = delete;
  Preferences& operator=(const Preferences&) = delete;
  virtual ~Preferences() = default;

  // The stored value, else the registered default, else nothing.
  virtual std::optional<Json> object(std::string_view key) const = 0;
  // Stores `value` and sees to its being written soon.
  virtual void set(std::string_view key, Json value) = 0;
  virtual void remove(std::string_view key) = 0;
  // Answers for keys that are not stored. Never written.
  virtual void registerDefaults(const PreferenceMap& defaults) = 0;

  // Takes in what other programs have stored meanwhile, below what was set here and is not stored yet. Blocks
  // for one small file; any thread. The other calls do it when they write.
  virtual void reread() {}

  // Of another type, or absent: false, nothing, zero.
  bool boolean(std::string_view key) const;
  std::optional<std::string> string(std::string_view key) const;
  long long integer(std::string_view key) const;
};

}  // namespace ostrel

// The preference store as a port: keys and values that survive the program.
//
// Reads answer from memory. Values are JSON values; raw data is held as a text. Main thread only, but for
// `reread`.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "Runtime/Json.h"

namespace ostrel {

// A key and the kind of its value. `PreferenceKeys.h` has those of the core, `OstrelSetting` the switches.
template <class T>
struct PreferenceKey {
  const char* name;
  constexpr operator std::string_view() const { return name; }
};

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

  // Of another type, or absent: false, nothing.
  bool get(PreferenceKey<bool> key) const { return boolean(key.name); }
  std::optional<std::string> get(PreferenceKey<std::string> key) const { return string(key.name); }
  void put(PreferenceKey<bool> key, bool value) { set(key.name, value); }
  void put(PreferenceKey<std::string> key, std::string value) { set(key.name, std::move(value)); }

  // Of another type, or absent: false, nothing, zero.
  bool boolean(std::string_view key) const;
  std::optional<std::string> string(std::string_view key) const;
  long long integer(std::string_view key) const;
};

}  // namespace ostrel

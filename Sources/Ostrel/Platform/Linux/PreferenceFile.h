// The file of one preference domain: a JSON object, indented, with sorted keys. Used by `PreferenceFiles`.
//
// Several programs may share the file. Each write takes the folder's lock, reads the file anew and changes
// only its own keys in it. A file that is no JSON object is set aside beside itself, never overwritten.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Preferences.h"

namespace ostrel {

// Keys set, or removed where nothing stands.
using PreferenceChanges = std::map<std::string, std::optional<Json>, std::less<>>;

// Nothing when `bytes` are not one JSON object. A null counts as an absent key.
std::optional<PreferenceMap> parsePreferences(std::string_view bytes);
std::string encodePreferences(const PreferenceMap& values);
void applyChanges(PreferenceMap& values, const PreferenceChanges& changes);

// All calls block, and may be made from any thread. They throw `Failure`, and then have changed nothing.
class PreferenceFile {
 public:
  // `complain` gets one line about a file that was set aside, on the calling thread.
  PreferenceFile(std::filesystem::path file, std::function<void(std::string_view)> complain);

  // Empty when the file is missing or was set aside.
  PreferenceMap read() const;

  // Lays `changes` over what the file holds now, and replaces it where that makes a difference. Where it had
  // to be set aside, `known` is what to start from. What the file holds afterwards.
  PreferenceMap write(const PreferenceChanges& changes, const PreferenceMap& known) const;

  void remove() const;

 private:
  struct Contents {
    std::string bytes;
    std::optional<PreferenceMap> values;  // nothing: broken
  };
  Contents load() const;
  void setAside() const;

  std::filesystem::path file_;
  std::function<void(std::string_view)> complain_;
};

}  // namespace ostrel

// Preferences that live as long as the test.
#pragma once

#include "Platform/PreferenceDomains.h"
#include "Platform/Preferences.h"

namespace ostrel {

class MemoryPreferences final : public Preferences {
 public:
  std::optional<Json> object(std::string_view key) const override {
    if (const auto found = stored.find(key); found != stored.end()) return found->second;
    if (const auto found = defaults.find(key); found != defaults.end()) return found->second;
    return std::nullopt;
  }
  void set(std::string_view key, Json value) override {
    stored.insert_or_assign(std::string(key), std::move(value));
  }
  void remove(std::string_view key) override {
    if (const auto found = stored.find(key); found != stored.end()) stored.erase(found);
  }
  void registerDefaults(const PreferenceMap& values) override { defaults = values; }

  PreferenceMap stored;
  PreferenceMap defaults;
};

class MemoryDomains final : public PreferenceDomains {
 public:
  Preferences* open(std::string_view domain) override {
    return only && domain != only ? nullptr : &domains[std::string(domain)];
  }
  PreferenceMap persistentDomain(std::string_view domain) override {
    return domains[std::string(domain)].stored;
  }
  void removePersistentDomain(std::string_view domain) override { domains.erase(std::string(domain)); }
  void flush() override {}

  std::map<std::string, MemoryPreferences> domains;
  std::optional<std::string_view> only;  // all that can be opened
};

}  // namespace ostrel

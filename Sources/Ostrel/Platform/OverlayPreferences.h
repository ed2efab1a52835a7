// Preferences as another store has them, with changes that stay in memory: for a program that only looks.
#pragma once

#include <utility>

#include "Platform/Preferences.h"

namespace ostrel {

class OverlayPreferences final : public Preferences {
 public:
  // `below` must outlive this.
  explicit OverlayPreferences(const Preferences& below) : below_(below) {}

  std::optional<Json> object(std::string_view key) const override {
    if (const auto changed = changes_.find(key); changed != changes_.end()) return changed->second;
    if (auto stored = below_.object(key)) return stored;
    const auto standard = defaults_.find(key);
    return standard == defaults_.end() ? std::nullopt : std::optional(standard->second);
  }
  void set(std::string_view key, Json value) override {
    changes_.insert_or_assign(std::string(key), std::move(value));
  }
  void remove(std::string_view key) override { changes_.insert_or_assign(std::string(key), std::nullopt); }
  void registerDefaults(const PreferenceMap& defaults) override { defaults_ = defaults; }

 private:
  const Preferences& below_;
  std::map<std::string, std::optional<Json>, std::less<>> changes_;  // nothing: removed
  PreferenceMap defaults_;
};

}  // namespace ostrel

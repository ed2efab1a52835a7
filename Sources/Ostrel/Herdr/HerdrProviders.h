// The catalogue of command-line agents that the product knows. Constant data, any thread.
#pragma once

#include <optional>
#include <span>
#include <string_view>

namespace ostrel {

struct HerdrProvider {
  std::string_view id;                          // the provider word, as Herdr reports it
  std::string_view name;                        // for display
  std::string_view executable;                  // command name
  std::optional<std::string_view> integration;  // Herdr's integration target
  bool launchable = false;                      // can be started from here

  bool operator==(const HerdrProvider&) const = default;

  // What the catalogue says about it.
  std::string_view note() const;

  // In the order of the catalogue view.
  static std::span<const HerdrProvider> all();
  // Null for an unknown word.
  static const HerdrProvider* find(std::string_view id);
};

}  // namespace ostrel

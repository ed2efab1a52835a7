// Herdr's integrations: the hooks that make an agent report its status to Herdr. Pure functions, any thread;
// the steps that check and install them belong to the client.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Agents/HerdrAgent.h"

namespace ostrel {

struct HerdrIntegration {
  std::string id;  // the integration's target
  std::string
      state;  // as Herdr words it: "current (...", "outdated (...", "needs repair (...", "not installed"
  bool operator==(const HerdrIntegration&) const = default;

  bool isCurrent() const { return state.starts_with("current ("); }

  // What `integration status` printed, a line for each target; other lines are headers and notes. Throws
  // `Failure` for text without a known target, or with one named twice.
  static std::vector<HerdrIntegration> parse(std::string_view data);

  // The targets worth installing: what is out of date, and what is missing for an agent that is in use.
  static std::vector<std::string> recommended(std::span<const HerdrIntegration> integrations,
                                              std::span<const HerdrAgent> agents);
};

}  // namespace ostrel

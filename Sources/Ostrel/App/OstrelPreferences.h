// The one preference store of a run: which domain it is, and how older domains are folded into it. A
// composition root makes one, before anything reads a preference. Main thread only.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/PreferenceDomains.h"

namespace ostrel {

class OstrelPreferences {
 public:
  // The domain of the installed program.
  static constexpr char domain[] = "one.ostrel.app";
  // The domain that runs without a bundle used to have; still theirs where the usual one can't be had.
  static constexpr char plainDomain[] = "Ostrel";
  static constexpr char prototypeDomain[] = "app.velmora.ostrel.prototype";

  // `arguments` with the program path first. `domains` must outlive this. Throws `Failure` when no store can
  // be had.
  OstrelPreferences(PreferenceDomains& domains, const std::vector<std::string>& arguments,
                    const std::optional<std::string>& bundleIdentifier, std::int32_t pid);
  OstrelPreferences(const OstrelPreferences&) = delete;
  OstrelPreferences& operator=(const OstrelPreferences&) = delete;
  // Removes the store of a fixture run that was migrated.
  ~OstrelPreferences();

  // A run with a throwaway store.
  bool isFixture() const { return fixtureDomain_.has_value(); }
  Preferences& shared() { return *shared_; }

  // Folds the old domains into the shared store, each once for good; they are kept. In a fixture run nothing
  // is read: the store is to be removed at the end.
  void migrate();

 private:
  void movePrototype();
  void shareAgents();

  PreferenceDomains& domains_;
  std::optional<std::string> fixtureDomain_;
  Preferences* shared_ = nullptr;
  bool removesAtEnd_ = false;
};

}  // namespace ostrel

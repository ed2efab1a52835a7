#include "App/OstrelPreferences.h"

#include <algorithm>
#include <array>
#include <string_view>

#include <fmt/format.h>

#include "App/Launch.h"
#include "App/OstrelSetting.h"
#include "Runtime/Failure.h"

namespace ostrel {

namespace {

constexpr char kMoved[] = "ostrel.movedFromPreviousDomain";
constexpr char kShared[] = "ostrel.sharedPreferencesMigrated";

// What the shared copy takes over: agents and links. Settings of the old domain stay behind.
constexpr std::array<std::string_view, 4> kSharedPrefixes = {"herdr", "ostrel.", "agentTitle.",
                                                             "transcriptLink."};

}  // namespace

const PreferenceMap& OstrelSetting::defaults() {
  static const PreferenceMap map = {
      {openOnHover.name, true},    {notchLights.name, true}, {doubleOptionOpens.name, false},
      {notifyNeedsYou.name, true}, {notifyDone.name, false}, {soundFinished.name, true},
      {soundNeedsYou.name, true},  {showInDock.name, true},
  };
  return map;
}

OstrelPreferences::OstrelPreferences(PreferenceDomains& domains, const std::vector<std::string>& arguments,
                                     const std::optional<std::string>& bundleIdentifier, std::int32_t pid)
    : domains_(domains) {
  if (launch::isFixture(arguments)) {
    fixtureDomain_ = fmt::format("{}.fixture.{}", domain, pid);
    // An earlier run with this process id may have ended without removing its own.
    domains.removePersistentDomain(*fixtureDomain_);
    shared_ = domains.open(*fixtureDomain_);
  } else {
    if (bundleIdentifier != domain) shared_ = domains.open(domain);
    if (!shared_) shared_ = domains.open(bundleIdentifier.value_or(plainDomain));
  }
  if (!shared_) throw Failure("Could not open the preferences.");
}

OstrelPreferences::~OstrelPreferences() {
  if (removesAtEnd_ && fixtureDomain_) domains_.removePersistentDomain(*fixtureDomain_);
}

void OstrelPreferences::migrate() {
  if (isFixture()) {
    removesAtEnd_ = true;
    return;
  }
  if (!shared_->boolean(kMoved)) movePrototype();
  if (!shared_->boolean(kShared)) shareAgents();
}

void OstrelPreferences::movePrototype() {
  for (auto& [key, value] : domains_.persistentDomain(prototypeDomain)) {
    if (!shared_->object(key)) shared_->set(key, value);
  }
  shared_->set(kMoved, true);
}

void OstrelPreferences::shareAgents() {
  const PreferenceMap present = domains_.persistentDomain(domain);
  for (auto& [key, value] : domains_.persistentDomain(plainDomain)) {
    const bool wanted = std::ranges::any_of(kSharedPrefixes,
                                            [&](std::string_view prefix) { return key.starts_with(prefix); });
    if (wanted && !present.contains(key)) shared_->set(key, value);
  }
  shared_->set(kShared, true);
}

}  // namespace ostrel

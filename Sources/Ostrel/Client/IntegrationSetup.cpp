#include "Client/IntegrationSetup.h"

#include <algorithm>
#include <map>
#include <utility>

#include <fmt/ranges.h>

#include "Herdr/HerdrProtocol.h"
#include "Runtime/Failure.h"
#include "Runtime/Text.h"

namespace ostrel {

namespace {

bool contains(const std::vector<std::string>& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

}  // namespace

IntegrationSetup::IntegrationSetup(MainLoop& loop, HerdrLink& link) : link_(link), tasks_(loop) {}

std::vector<std::string> IntegrationSetup::recommended(const std::vector<HerdrAgent>& agents) const {
  return HerdrIntegration::recommended(*integrations_, agents);
}

void IntegrationSetup::check() {
  if (*busy_) return;
  busy_.set(true);
  tasks_.start(run({}));
}

void IntegrationSetup::install(std::vector<std::string> targets) {
  if (*busy_ || targets.empty()) return;
  busy_.set(true);
  tasks_.start(run(std::move(targets)));
}

Task<void> IntegrationSetup::run(std::vector<std::string> targets) {
  const auto executable = co_await link_.executable();
  if (executable && targets.empty()) {
    co_await runCheck(*executable);
  } else if (executable) {
    co_await runInstall(*executable, std::move(targets));
  }
  busy_.set(false);
}

Task<void> IntegrationSetup::runCheck(std::filesystem::path executable) {
  try {
    integrations_.set(
        HerdrIntegration::parse(co_await link_.cli().run(executable, {"integration", "status"})));
  } catch (const Failure& failure) {
    integrations_.set({});
    message_.set(failure.message());
  }
}

Task<void> IntegrationSetup::runInstall(std::filesystem::path executable, std::vector<std::string> targets) {
  std::map<std::string, std::string> failed;  // with Herdr's own words, where it says why
  for (const std::string& target : targets) {
    try {
      co_await link_.cli().run(executable, {"integration", "install", target});
    } catch (const HerdrProtocol::Refusal& refusal) {
      failed[target] = fmt::format(" ({})", text::dropSuffix(refusal.message(), "."));
    } catch (const Failure&) {
      failed[target] = "";
    }
  }
  try {
    auto now = HerdrIntegration::parse(co_await link_.cli().run(executable, {"integration", "status"}));
    for (const HerdrIntegration& integration : now) {
      if (contains(targets, integration.id) && !integration.isCurrent()) failed.try_emplace(integration.id);
    }
    integrations_.set(std::move(now));
    std::vector<std::string> listed;
    for (const std::string& target : targets) {
      if (const auto found = failed.find(target); found != failed.end())
        listed.push_back(target + found->second);
    }
    message_.set(
        failed.empty()
            ? "Integrations installed. Existing agents may need to be resumed or restarted in Herdr to "
              "load their hooks. Live links appear after they report their session."
            : fmt::format("Setup needs attention: {}. Check provider installation and configuration, "
                          "then retry.",
                          fmt::join(listed, ", ")));
  } catch (const Failure& failure) {
    message_.set("Setup ran, but verification failed: " + failure.message());
  }
}

}  // namespace ostrel

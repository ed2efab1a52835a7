#include "Client/IntegrationSetup.h"

#include <algorithm>
#include <utility>

#include <fmt/ranges.h>

#include "Runtime/Failure.h"

namespace ostrel {

namespace {

bool contains(const std::vector<std::string>& words, std::string_view word) {
  return std::ranges::find(words, word) != words.end();
}

}  // namespace

IntegrationSetup::IntegrationSetup(MainLoop& loop, BackgroundPool& pool, Doors doors)
    : pool_(pool), doors_(std::move(doors)), tasks_(loop) {}

std::vector<std::string> IntegrationSetup::recommended(const std::vector<HerdrAgent>& agents) const {
  return HerdrIntegration::recommended(*integrations_, agents);
}

void IntegrationSetup::check() {
  if (*busy_) return;
  const auto executable = doors_.executable();
  if (!executable) return;
  busy_.set(true);
  tasks_.start(runCheck(*executable));
}

void IntegrationSetup::install(std::vector<std::string> targets) {
  if (*busy_ || targets.empty()) return;
  const auto executable = doors_.executable();
  if (!executable) return;
  busy_.set(true);
  tasks_.start(runInstall(*executable, std::move(targets)));
}

Task<std::string> IntegrationSetup::command(std::filesystem::path executable,
                                            std::vector<std::string> arguments) {
  co_return co_await pool_.run([run = doors_.run, executable = std::move(executable),
                                arguments = std::move(arguments)](std::stop_token stop) {
    return run(executable, arguments, HerdrCommand::kUsualTime, std::move(stop));
  });
}

Task<void> IntegrationSetup::runCheck(std::filesystem::path executable) {
  try {
    integrations_.set(HerdrIntegration::parse(co_await command(executable, {"integration", "status"})));
  } catch (const Failure& failure) {
    integrations_.set({});
    message_.set(failure.message());
  }
  busy_.set(false);
}

Task<void> IntegrationSetup::runInstall(std::filesystem::path executable, std::vector<std::string> targets) {
  std::vector<std::string> failed;
  for (const std::string& target : targets) {
    try {
      co_await command(executable, {"integration", "install", target});
    } catch (const Failure&) {
      failed.push_back(target);
    }
  }
  try {
    auto now = HerdrIntegration::parse(co_await command(executable, {"integration", "status"}));
    for (const HerdrIntegration& integration : now) {
      if (contains(targets, integration.id) && !integration.isCurrent() && !contains(failed, integration.id))
        failed.push_back(integration.id);
    }
    integrations_.set(std::move(now));
    message_.set(
        failed.empty()
            ? "Integrations installed. Existing agents may need to be resumed or restarted in Herdr to "
              "load their hooks. Live links appear after they report their session."
            : fmt::format("Setup needs attention: {}. Check provider installation and configuration, "
                          "then retry.",
                          fmt::join(failed, ", ")));
  } catch (const Failure& failure) {
    message_.set("Setup ran, but verification failed: " + failure.message());
  }
  busy_.set(false);
}

}  // namespace ostrel

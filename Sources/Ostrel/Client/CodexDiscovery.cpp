#include "Client/CodexDiscovery.h"

#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kPassInterval = 3s;

}  // namespace

CodexDiscovery::CodexDiscovery(MainLoop& loop, BackgroundPool& pool, List list,
                               Published<std::vector<HerdrAgent>>& agents, Watch watch)
    : pool_(pool), list_(std::move(list)), agents_(agents), watch_(std::move(watch)), tasks_(loop) {}

void CodexDiscovery::start() {
  if (std::exchange(started_, true)) return;
  tasks_.start(run());
}

Task<void> CodexDiscovery::run() {
  for (;;) {
    std::vector<HerdrAgent> agents;
    std::optional<std::string> problem;
    try {
      agents = co_await pool_.run(list_);
    } catch (const Cancelled&) {
      throw;
    } catch (const std::exception& failure) {
      problem = std::string("Codex live connection unavailable: ") + failure.what();
    }
    std::set<std::string> threads;
    for (const HerdrAgent& agent : agents) threads.insert(agent.paneID);
    agents_.set(std::move(agents));
    watch_(threads);
    error_.set(std::move(problem));
    passes_.set(*passes_ + 1);
    co_await sleepFor(kPassInterval);
  }
}

}  // namespace ostrel

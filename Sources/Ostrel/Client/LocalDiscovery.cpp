#include "Client/LocalDiscovery.h"

#include <set>
#include <utility>

namespace ostrel {

namespace {

using namespace std::chrono_literals;

constexpr Duration kScanInterval = 5s;
// Lets a burst of file events fold into one scan.
constexpr Duration kSettling = 12ms;

}  // namespace

LocalDiscovery::LocalDiscovery(MainLoop& loop, Background& pool, Kernel kernel, Scan scan,
                               std::filesystem::path claudeSessions)
    : loop_(loop),
      pool_(pool),
      kernel_(kernel),
      scan_(std::move(scan)),
      claudeSessions_(std::move(claudeSessions)),
      tasks_(loop) {}

void LocalDiscovery::start() {
  if (std::exchange(started_, true)) return;
  tasks_.start(run());
}

Task<void> LocalDiscovery::run() {
  for (;;) {
    std::optional<std::string> problem;
    const TimePoint began = loop_.now();
    try {
      auto found = co_await pool_.run(scan_);
      scannedAt_ = began;
      agents_.set(std::move(found));
      watchAgents();
    } catch (const Cancelled&) {
      throw;
    } catch (const std::exception& failure) {
      problem = std::string("Local discovery unavailable: ") + failure.what();
      agents_.set({});
    }
    error_.set(std::move(problem));
    scans_.set(*scans_ + 1);

    co_await wake_.waitFor(kScanInterval);
    co_await sleepFor(kSettling);
    wake_.lower();  // what came until now, the next scan sees
  }
}

void LocalDiscovery::watchAgents() {
  std::set<std::int64_t> pids;
  for (const HerdrAgent& agent : *agents_) {
    if (agent.externalProcess) pids.insert(agent.externalProcess->pid);
  }
  std::erase_if(exitWatches_, [&](const auto& entry) { return !pids.contains(entry.first); });
  for (const std::int64_t pid : pids) {
    Registration& watch = exitWatches_[pid];
    if (!watch) watch = kernel_.exits.watch(static_cast<std::int32_t>(pid), [this] { wake_.raise(); });
  }
  if (!sessionsWatch_) {
    sessionsWatch_ = kernel_.files.watchFolder(claudeSessions_, [this](std::string_view name) {
      if (name.empty()) sessionsWatch_.reset();  // the folder went; watched again once a scan finds it
      if (name.empty() || name.ends_with(".json")) wake_.raise();
    });
    // A file may have come between the scan and the watch.
    if (sessionsWatch_) wake_.raise();
  }
}

}  // namespace ostrel

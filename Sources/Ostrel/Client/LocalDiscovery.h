// Keeps the list of agents that run outside Herdr: scans every 5 seconds, or at once when the process of an
// agent exits or a Claude Code session file changes. Main thread only; the scan itself runs in the
// background.
//
// Nothing runs between scans: the waits are a timer and kernel events.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Platform/FileWatcher.h"
#include "Platform/ProcessExits.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class LocalDiscovery {
 public:
  // Blocks; throws `Failure` or `Cancelled`. Called by one background job at a time.
  using Scan = std::function<std::vector<HerdrAgent>(std::stop_token)>;

  struct Kernel {
    ProcessExits& exits;
    FileWatcher& files;
  };

  // `claudeSessions` is the folder in which Claude Code keeps a file for each session; it may be missing.
  LocalDiscovery(MainLoop& loop, Background& pool, Kernel kernel, Scan scan,
                 std::filesystem::path claudeSessions);

  // Starts scanning; does nothing when started before. Ends with the object.
  void start();
  // Asks for a scan soon: now where none runs, otherwise after the one that does.
  void rescan() { wake_.raise(); }

  Published<std::vector<HerdrAgent>>& agents() { return agents_; }
  // When the scan that `agents` came from began: what has happened since, it may not have seen.
  TimePoint scannedAt() const { return scannedAt_; }
  // What to tell the person when the last scan failed.
  Published<std::optional<std::string>>& error() { return error_; }
  // Scans finished so far, failed ones included. Changes after `agents` and `error`.
  Published<std::uint64_t>& scans() { return scans_; }

 private:
  Task<void> run();
  void watchAgents();

  MainLoop& loop_;
  Background& pool_;
  Kernel kernel_;
  Scan scan_;
  std::filesystem::path claudeSessions_;
  Published<std::vector<HerdrAgent>> agents_;
  TimePoint scannedAt_ = TimePoint::min();
  Published<std::optional<std::string>> error_;
  Published<std::uint64_t> scans_;
  std::map<std::int64_t, Registration> exitWatches_;
  Registration sessionsWatch_;
  WakeFlag wake_;
  bool started_ = false;
  TaskScope tasks_;
};

}  // namespace ostrel

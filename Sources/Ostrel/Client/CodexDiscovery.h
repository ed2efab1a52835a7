// Keeps the list of loaded Codex conversations: asks the app server every 3 seconds. Main thread only; the
// asking itself runs in the background.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <stop_token>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class CodexDiscovery {
 public:
  // As `CodexLive::list`: blocks; throws `Failure` or `Cancelled`.
  using List = std::function<std::vector<HerdrAgent>(std::stop_token)>;
  // Told after each pass which threads are there to be joined: none when the pass failed.
  using Watch = std::function<void(const std::set<std::string>& threads)>;

  // `agents` is where the list is published, emptied by a pass that fails. It outlives the discovery.
  CodexDiscovery(MainLoop& loop, BackgroundPool& pool, List list, Published<std::vector<HerdrAgent>>& agents,
                 Watch watch);

  // Starts asking; does nothing when started before. Ends with the object.
  void start();

  // What to tell the person when the last pass failed.
  Published<std::optional<std::string>>& error() { return error_; }
  // Passes finished so far, failed ones included. Changes after everything else.
  Published<std::uint64_t>& passes() { return passes_; }

 private:
  Task<void> run();

  BackgroundPool& pool_;
  List list_;
  Published<std::vector<HerdrAgent>>& agents_;
  Watch watch_;
  Published<std::optional<std::string>> error_;
  Published<std::uint64_t> passes_;
  bool started_ = false;
  TaskScope tasks_;
};

}  // namespace ostrel

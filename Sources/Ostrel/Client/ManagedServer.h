// Makes sure that a local Herdr session exists, starting one of the product's own where the person wants
// that. Main thread only.
#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Herdr/HerdrCli.h"
#include "Platform/Preferences.h"
#include "Platform/ServerLauncher.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class ManagedServer {
 public:
  // The session that the product starts.
  static constexpr char session[] = "ostrel";

  struct Doors {
    std::function<std::optional<std::filesystem::path>()> executable;
    std::function<std::string()> chosenSession;  // the person's filter, trimmed; empty for all
    std::function<bool()> connecting;            // a connection is being made
    std::map<std::string, std::string> environment;
    ServerLauncher& launcher;
    bool fixture = false;  // a run that leaves no claim of a managed server
  };
  ManagedServer(HerdrCli& cli, Preferences& preferences, Doors doors);

  // The name of a running session to use. Throws `Failure` in the user's words. Where none is clear, one is
  // started if the person asks for that now (`start`) or did before. A server is launched at most once for as
  // long as it runs.
  Task<std::string> ensureSession(bool start);

  // A server is being started and waited for.
  Published<bool>& starting() { return starting_; }

 private:
  Task<std::vector<std::string>> running(std::filesystem::path executable);
  void launch(const std::filesystem::path& executable);

  HerdrCli& cli_;
  Preferences& preferences_;
  Doors doors_;
  Published<bool> starting_{false};
  std::unique_ptr<LaunchedServer> server_;
};

}  // namespace ostrel

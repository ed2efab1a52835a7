// Makes sure that a local Herdr session exists, starting one of the product's own where the person wants
// that. Main thread only.
#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "Client/HerdrLink.h"
#include "Platform/Preferences.h"
#include "Platform/ServerLauncher.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class ManagedServer {
 public:
  // The session that the product starts.
  static constexpr char session[] = "ostrel";

  struct Launch {
    ServerLauncher& launcher;
    std::map<std::string, std::string> environment;
    bool fixture = false;  // a run that leaves no claim of a managed server
  };
  ManagedServer(HerdrLink& link, Preferences& preferences, Launch launch);

  // The name of a running session to use. Throws `Failure` in the user's words. Where none is clear, one is
  // started if the person asks for that now (`start`) or did before. A server is launched at most once for as
  // long as it runs.
  Task<std::string> ensureSession(bool start);

  // A server is being started and waited for.
  Published<bool>& starting() { return starting_; }

 private:
  Task<std::vector<std::string>> running(std::filesystem::path executable);
  void launch(const std::filesystem::path& executable);

  HerdrLink& link_;
  Preferences& preferences_;
  const Launch launch_;
  Published<bool> starting_{false};
  std::unique_ptr<LaunchedServer> server_;
};

}  // namespace ostrel

// Herdr's integrations as the person sees them: their state, which are worth installing, and installing them
// by Herdr's own installer. Main thread only. One operation runs at a time; one asked for meanwhile is
// dropped.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Herdr/HerdrCommand.h"
#include "Herdr/HerdrIntegrations.h"
#include "Runtime/Background.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class IntegrationSetup {
 public:
  struct Doors {
    HerdrCommand::Run run;
    // The executable to use; none, and nothing is done.
    std::function<std::optional<std::filesystem::path>()> executable;
  };
  IntegrationSetup(MainLoop& loop, BackgroundPool& pool, Doors doors);

  void check();
  // The targets in order; a failure of one does not keep the others back.
  void install(std::vector<std::string> targets);

  // Targets worth installing, given the agents in use.
  std::vector<std::string> recommended(const std::vector<HerdrAgent>& agents) const;

  Published<std::vector<HerdrIntegration>>& integrations() { return integrations_; }
  Published<bool>& busy() { return busy_; }
  // What the last operation has to say.
  Published<std::optional<std::string>>& message() { return message_; }

 private:
  Task<void> runCheck(std::filesystem::path executable);
  Task<void> runInstall(std::filesystem::path executable, std::vector<std::string> targets);
  Task<std::string> command(std::filesystem::path executable, std::vector<std::string> arguments);

  BackgroundPool& pool_;
  Doors doors_;
  Published<std::vector<HerdrIntegration>> integrations_;
  Published<bool> busy_{false};
  Published<std::optional<std::string>> message_;
  TaskScope tasks_;
};

}  // namespace ostrel

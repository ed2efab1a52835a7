// Herdr's integrations as the person sees them: their state, which are worth installing, and installing them
// by Herdr's own installer. Main thread only. One operation runs at a time; one asked for meanwhile is
// dropped.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Agents/HerdrAgent.h"
#include "Client/HerdrLink.h"
#include "Herdr/HerdrIntegrations.h"
#include "Runtime/Published.h"
#include "Runtime/Task.h"

namespace ostrel {

class IntegrationSetup {
 public:
  // Where no Herdr is installed nothing is done.
  IntegrationSetup(MainLoop& loop, HerdrLink& link);

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
  Task<void> run(std::vector<std::string> targets);
  Task<void> runCheck(std::filesystem::path executable);
  Task<void> runInstall(std::filesystem::path executable, std::vector<std::string> targets);

  HerdrLink& link_;
  Published<std::vector<HerdrIntegration>> integrations_;
  Published<bool> busy_{false};
  Published<std::optional<std::string>> message_;
  TaskScope tasks_;
};

}  // namespace ostrel

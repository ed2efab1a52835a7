#include "Platform/Linux/SpawnedServers.h"

#include <sys/wait.h>

#include "Runtime/Spawn.h"

namespace ostrel {

namespace {

class SpawnedServer final : public LaunchedServer {
 public:
  explicit SpawnedServer(pid_t pid) : pid_(pid) {}
  bool running() override {
    if (pid_ > 0 && ::waitpid(pid_, nullptr, WNOHANG) != 0) pid_ = -1;
    return pid_ > 0;
  }

 private:
  pid_t pid_;
};

}  // namespace

std::unique_ptr<LaunchedServer> SpawnedServers::launch(
    const std::string& executable, const std::vector<std::string>& arguments,
    const std::map<std::string, std::string>& environment) {
  return std::make_unique<SpawnedServer>(spawn(executable, arguments, environment, -1, SpawnGroup::session));
}

}  // namespace ostrel
